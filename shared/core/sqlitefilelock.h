#pragma once

#include <QString>
#include <QStringList>

/// Keeps every program that uses SQLite out of a database file, so that the files beside it can be
/// taken away. SQLite finds these by their names alone: a write-ahead log beside a file that it
/// does not belong to is applied to that file and damages it.
///
/// The lock fails while any connection has the file open in WAL mode, whichever process it is of.
/// It must not be asked for while this process has such a connection or opens one: on Linux a
/// process loses its locks on a file with the first descriptor that it closes.
class SqliteFileLock
{
public:
    explicit SqliteFileLock(const QString &path);
    /// Lets the others in again.
    ~SqliteFileLock();
    SqliteFileLock(const SqliteFileLock &) = delete;
    SqliteFileLock &operator=(const SqliteFileLock &) = delete;

    bool isTaken() const { return isTaken_; }
    /// The lock was not taken because a program has the file open.
    bool isInUse() const { return isInUse_; }
    /// What the system said, when the lock was not taken.
    QString reason() const { return reason_; }

    /// The endings of the files that SQLite keeps beside a database.
    static QStringList companions();
    /// A name beside `path` that nothing has yet, nor with a companion's ending: the path, what has
    /// become of the file, and the time, as in `queues.db.replaced-20260131-120000`.
    static QString keptName(const QString &path, const QString &fate);

private:
    const int file;
    bool isTaken_ = false;
    bool isInUse_ = false;
    QString reason_;
};
