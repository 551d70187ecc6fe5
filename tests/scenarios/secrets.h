#pragma once

#include "rig/serviceprocess.h"
#include "tools/stand/scenario.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

/// A place of the log at which a secret may stand, and why.
struct SecretPlace
{
    /// A regular expression for the record, `LEVEL [category] text`; its first group is the place.
    QString record;
    QString reason;
};

/// The places that there are.
QList<SecretPlace> secretPlaces();

/// The passwords, tokens and keys of one scenario: known by the name under which they stand in
/// messages, settings, files, the environment, and in what goes to the peers and comes from them.
class Secrets
{
public:
    explicit Secrets(const stand::Scenario &scenario);

    const QSet<QString> &values() const { return found; }
    /// The log's records that hold one of them elsewhere than in a place for it; a line for each.
    QStringList leaks(const QList<rig::LogRecord> &log) const;
    /// The rows of the delivery journal that hold one of them, which has no place for them.
    QStringList journalLeaks(const QStringList &journal) const;

private:
    void take(const QString &value);
    void takeNamed(const QString &name, const QString &value);
    void takeFromText(const QString &text);
    void takeFromJson(const QJsonValue &value, const QString &name);
    void takeFromMessage(const stand::QueuedMessage &message);

    QSet<QString> found;
};
