#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// Types that differ in nothing that takes time. The first one is taken where there is only one.
inline const QStringList types{QStringLiteral("heineken"),      QStringLiteral("abmloyalty"),
                               QStringLiteral("smartscales"),   QStringLiteral("cardlab"),
                               QStringLiteral("waybillnumber"), QStringLiteral("customeraddress"),
                               QStringLiteral("nochange"),      QStringLiteral("winelabbonus")};
/// Rows of a type that has no handler stay where they are.
inline const QStringList stayingType{QStringLiteral("bench")};
/// As many types as queue-plaintypes has.
constexpr int plainTypeCount = 57;

/// Types draining, how much longer a commit takes, how long a reply does.
struct TillCase
{
    int types = 0;
    int commitMs = 0;
    int replyMs = 0;
};

struct Options
{
    QString service;
    QString bareLoop;
    QString storeTimes;
    QString plainTypes;
    QString tillWriter;
    QString slowSync;
    /// An earlier build of the service, empty for none.
    QString former;
    QString folder;
    /// "SQLite" or "MariaDB", empty for both.
    QString database;
    int messages = 0;
    int rounds = 0;
    int idleSeconds = 0;
    int tillSeconds = 0;
    /// Empty for all of them.
    QList<TillCase> tillCases;
};
