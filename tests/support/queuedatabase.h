#pragma once

#include "rig/till.h"

#include <QSqlDatabase>

/// A till in a temporary folder, which QUEUE_ROOT names for the object's life, and the service's
/// SQLite database there, with empty tables, over the service's own connections. The settings are
/// those of `tcash.ini` as setSettings() wrote it.
class QueueDatabase
{
public:
    QueueDatabase();
    ~QueueDatabase();
    QueueDatabase(const QueueDatabase &) = delete;

    /// The temporary folder; paths of the till lie below it.
    QString root() const { return till_.root(); }
    /// The SQLite file.
    QString file() const { return till_.databaseFile(); }
    rig::Till &till() { return till_; }
    const rig::Till &till() const { return till_; }

    /// Replaces the settings; they apply at once.
    void setSettings(const QString &text);

    /// Writes a row and returns its id.
    int put(const QString &type, const QString &body, const QString &cardNumber = QString());
    /// The ids of the rows, in ascending order; with a type, of that type.
    QList<int> ids(const QString &type = QString());
    /// Runs one statement, which must succeed, with `values` for its question marks, and returns
    /// the rows.
    QList<QVariantList> query(const QString &statement, const QVariantList &values = {});

private:
    rig::Till till_;
    QByteArray formerRoot;
};
