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

/// The SQLite files that this process's connections have open, each as it was when it was opened.
///
/// SQLite finds a write-ahead log by its name. When the file is deleted or replaced, it would apply
/// the log that is left of the former file to the new one, and damage it. So that log is put aside
/// before the new file is opened, and when a connection is closed whose file was replaced. The
/// service's log tells it once for each new file.
///
/// Thread: any.
class SqliteFiles
{
public:
    /// The file that a connection has open, as it was named and numbered when it was opened.
    struct FileIdentity
    {
        QString path;
        /// The file itself, where the path is a link: the files beside it are there.
        QString realPath;
        quint64 device = 0;
        quint64 inode = 0;
        /// Of the files beside it, in the order of SqliteFileLock::companions(); 0 for none.
        std::array<quint64, 2> companions = {};
    };

    SqliteFiles();
    ~SqliteFiles();

    /// The file of a connection; its path is empty for one that has none.
    FileIdentity of(const QString &name) const;
    /// Whether the path of the connection's file still leads to it.
    bool isCurrent(const QString &name) const;

    /// Puts aside what is left of a former file at `path`, has `attach` open the new one, and notes
    /// it for the connection `name`. One file is opened at a time. Throws BasicException when what
    /// is left cannot be put aside, and whatever `attach` throws.
    void open(const QString &name, const QString &path, const std::function<void()> &attach);
    /// Notes the files beside it as well, once they are there.
    void note(const QString &name, const QString &path);
    /// Forgets the connection's file, before the connection is closed.
    void close(const QString &name);

private:
    static bool isSameFile(const FileIdentity &one, const FileIdentity &other);
    QString putFormerLogAside(const QString &path);
    QStringList companionsLeft(const FileIdentity &current);
    QString moveAside(const FileIdentity &current, const QStringList &left);
    void report(const FileIdentity &current, const QString &text);

    Guarded<QHash<QString, FileIdentity>> identities;
    /// Held while a file is opened, and while what is left of a former file is put aside; taken
    /// before the mutex of `identities`. It guards the two below as well.
    QMutex opening;
    /// What is left of former files and could not be put aside, by its path.
    QHash<QString, std::shared_ptr<FilePin>> unmoved;
    /// The file that the last line about a replacement was about.
    FileIdentity reported;
};
