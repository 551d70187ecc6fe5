#pragma once

#include <QFile>
#include <QSaveFile>
#include <QString>

namespace queuectl {

/// Whether the path, links followed, is a device, a pipe or a socket. Such a file is written to; it
/// is not replaced, and its rights stay.
bool isSpecialFile(const QString &path);

/// A file for a result. A regular file is put in place as a whole by commit(); until then, and
/// after a failure, the former one stays. Each call throws Failure with the path and the reason.
class OutputFile
{
public:
    /// `permissions`: of a regular file.
    OutputFile(const QString &path, QFile::Permissions permissions);
    void write(const QByteArray &bytes);
    void commit();

private:
    [[noreturn]] void fail() const;

    const QString path;
    QSaveFile regular;
    QFile special;
    QFileDevice &file;
};

} // namespace queuectl
