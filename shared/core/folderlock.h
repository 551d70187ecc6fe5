#pragma once

#include <QString>

#include <optional>

/// Keeps a second service out of the service's folder: two would deliver every message twice. It is
/// an advisory lock (flock) on a file, so the kernel drops it with the process, however that ends,
/// and no file that is left behind means anything. The file names the holder for the one that is
/// refused. Thread: the one that made it.
class FolderLock
{
public:
    enum class Result
    {
        Taken,
        /// Another process has it.
        Held,
        /// The file is there and cannot be opened, or is not a plain file.
        Refused,
        /// No file can be made, or the file system has no locks.
        Unavailable,
    };

    struct Holder
    {
        /// 0 when the file does not tell.
        qint64 processId = 0;
        /// `active`, `standby`, or what another program calls its work.
        QString role;
    };

    explicit FolderLock(const QString &path);
    /// Gives the lock back.
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    /// Does not wait for the holder. No program that this process starts inherits the lock.
    Result take(const QString &role);
    /// After Refused or Unavailable: what the system said.
    QString reason() const { return reason_; }
    /// Writes the role into the file, if the lock is taken.
    void setRole(const QString &role);

    /// Who has the lock on the file at `path`; nothing when nobody has.
    static std::optional<Holder> holder(const QString &path);

private:
    Result open();
    bool isFileInPlace() const;

    const QString path;
    QString reason_;
    int file = -1;
};
