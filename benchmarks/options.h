#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// Types with equal costs. The first one is used where only one is needed.
inline const QStringList types{QStringLiteral("heineken"),      QStringLiteral("abmloyalty"),
                               QStringLiteral("smartscales"),   QStringLiteral("cardlab"),
                               QStringLiteral("waybillnumber"), QStringLiteral("customeraddress"),
                               QStringLiteral("nochange"),      QStringLiteral("winelabbonus")};
/// Rows of a type without a handler are never removed.
inline const QStringList stayingType{QStringLiteral("bench")};
/// The number of types in queue-plaintypes.
constexpr int plainTypeCount = 57;

/// Number of draining types, additional time of a commit, time of a reply.
struct TillCase
{
    int types = 0;
    int commitMs = 0;
    int replyMs = 0;
};

struct Options
{
    QString service;
    QString queuectl;
    QString bareLoop;
    QString storeTimes;
    QString plainTypes;
    QString tillWriter;
    QString slowSync;
    /// An earlier build of the service to compare with; empty for none.
    QString former;
    QString folder;
    /// "SQLite" or "MariaDB"; empty for both.
    QString database;
    int messages = 0;
    int rounds = 0;
    int idleSeconds = 0;
    int tillSeconds = 0;
    /// Empty for all cases.
    QList<TillCase> tillCases;
};
