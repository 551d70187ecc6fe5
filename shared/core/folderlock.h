#pragma once

#include <QString>

#include <optional>

/// Ensures that one service works in the service's folder: two would deliver every message twice.
/// It is an advisory lock (flock) on a file. The kernel releases it when the process ends, so a
/// file without a lock has no meaning. The file names the holder for a service that is refused.
/// Thread: the one that made it.
class FolderLock
{
public:
    enum class Result
    {
        Taken,
        /// Another process holds it.
        Held,
        /// The file exists but cannot be opened, or is not a plain file.
        Refused,
        /// The file cannot be created, or the file system has no locks.
        Unavailable,
    };

    struct Holder
    {
        /// 0 if the file does not contain it.
        qint64 processId = 0;
        /// `active`, `standby`, or another program's name for its work.
        QString role;
    };

    explicit FolderLock(const QString &path);
    /// Releases the lock.
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    /// Does not wait for the holder. Child processes do not inherit the lock.
    Result take(const QString &role);
    /// After Refused or Unavailable: the system's error text.
    QString reason() const { return reason_; }
    /// Writes the role into the file if the lock is held.
    void setRole(const QString &role);

    /// The holder of the lock on the file at `path`; none if it is free.
    static std::optional<Holder> holder(const QString &path);

private:
    Result open();
    bool isFileInPlace() const;

    const QString path;
    QString reason_;
    int file = -1;
};
