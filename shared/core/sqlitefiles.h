#pragma once

#include "shared/core/guarded.h"

#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <memory>

class FilePin;

/// Identities of the SQLite files that this process's connections have open.
///
/// SQLite finds a write-ahead log by name. After the database file is deleted or replaced, SQLite
/// would apply the former file's log to the new file and damage it. Therefore that log is renamed
/// before the new file is opened, and when a connection to a replaced file is closed. Each new file
/// is logged once.
///
/// Thread: any.
class SqliteFiles
{
public:
    /// A connection's file, with its name and inode at the time of opening.
    struct FileIdentity
    {
        QString path;
        /// The target if the path is a symbolic link; the companions are beside it.
        QString realPath;
        quint64 device = 0;
        quint64 inode = 0;
        /// Inodes of the companions, in the order of SqliteFileLock::companions(); 0: none.
        std::array<quint64, 2> companions = {};
    };

    SqliteFiles();
    ~SqliteFiles();

    /// The file of a connection; the path is empty if it has none.
    FileIdentity of(const QString &name) const;
    /// Whether the connection's path still names the same file.
    bool isCurrent(const QString &name) const;

    /// Renames companions of a former file at `path`, calls `attach` to open the new one, and notes
    /// it for the connection `name`. Calls are serialized. Throws BasicException when a companion
    /// cannot be renamed, and whatever `attach` throws.
    void open(const QString &name, const QString &path, const std::function<void()> &attach);
    /// Notes the companions as well, once they exist.
    void note(const QString &name, const QString &path);
    /// Removes the connection's entry. Call before closing the connection.
    void close(const QString &name);

private:
    static bool isSameFile(const FileIdentity &one, const FileIdentity &other);
    QString renameFormerLog(const QString &path);
    QStringList formerCompanions(const FileIdentity &current);
    QString renameCompanions(const FileIdentity &current, const QStringList &left);
    void report(const FileIdentity &current, const QString &text);

    Guarded<QHash<QString, FileIdentity>> identities;
    /// Held while a file is opened or companions are renamed; locked before the mutex of
    /// `identities`. It guards the next two members as well.
    QMutex opening;
    /// Companions of former files that could not be renamed, by path.
    QHash<QString, std::shared_ptr<FilePin>> pinnedCompanions;
    /// The file of the last report.
    FileIdentity reported;
};
