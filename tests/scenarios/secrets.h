#pragma once

#include "rig/serviceprocess.h"
#include "tools/stand/scenario.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

/// A place in the log where a secret may be, and why.
struct SecretPlace
{
    /// A regular expression for the record, `LEVEL [category] text`; its first group is the place.
    QString record;
    QString reason;
};

/// The places that there are.
QList<SecretPlace> secretPlaces();

/// The passwords, tokens and keys of one scenario, found by their names in messages, settings,
/// files, the environment, and in requests and replies.
class Secrets
{
public:
    explicit Secrets(const stand::Scenario &scenario);

    const QSet<QString> &values() const { return found; }
    /// The records of the log that contain one of them outside of the allowed places; a line for
    /// each.
    QStringList leaks(const QList<rig::LogRecord> &log) const;
    /// The rows of the delivery journal that contain one of them, where none is allowed.
    QStringList journalLeaks(const QStringList &journal) const;

private:
    void take(const QString &value);
    void takeNamed(const QString &name, const QString &value);
    void takeFromText(const QString &text);
    void takeFromJson(const QJsonValue &value, const QString &name);
    void takeFromMessage(const stand::QueuedMessage &message);

    QSet<QString> found;
};
