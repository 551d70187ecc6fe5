#include "tests/fuzz/fuzz.h"

#include "shared/core/paths.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace fuzz {

namespace {

/// In memory where the system offers that: some programs write a file for each input.
QString folderTemplate()
{
    const QString memory = u"/dev/shm"_s;
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) + u"/queue-fuzz-XXXXXX"_s;
}

struct Till
{
    Till()
        : folder(folderTemplate())
    {
        if (!folder.isValid())
            fail(folder.errorString());
        qputenv("QUEUE_ROOT", folder.path().toUtf8());
        for (const QString &path : {u"/tallocash/cash/conf"_s, u"/tallocash/cash/queue/config"_s,
                                    u"/tallocash/cash/conf/tcash.ini.d/puppet"_s,
                                    u"/tallocash/cash/queue/config/queue.d"_s, u"/tmp"_s})
            QDir().mkpath(rootedPath(path));
        Log4Qt::LogManager::setThreshold(Log4Qt::Level::OFF_INT);
    }

    QTemporaryDir folder;
    int argumentCount = 1;
    char name[5] = "fuzz";
    char *arguments[2] = {name, nullptr};
    /// Outlives the database drivers, which at the end of the process do not look whether it is there.
    QCoreApplication &application = *new QCoreApplication(argumentCount, arguments);
};

} // namespace

void fail(const QString &what)
{
    std::fprintf(stderr, "FINDING: %s\n", qUtf8Printable(what));
    std::abort();
}

QString till()
{
    static const Till instance;
    return instance.folder.path();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    // Most folders are there already.
    if ((!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
         && !(QDir().mkpath(QFileInfo(path).path())
              && file.open(QIODevice::WriteOnly | QIODevice::Truncate)))
        || file.write(content) != content.size())
        fail(u"%1: %2"_s.arg(path, file.errorString()));
}

MemoryFile::MemoryFile()
    : descriptor(memfd_create("fuzz", MFD_CLOEXEC))
{
    check(descriptor >= 0, "no file in memory can be made");
}

MemoryFile::~MemoryFile()
{
    ::close(descriptor);
}

QString MemoryFile::path() const
{
    return u"/proc/self/fd/%1"_s.arg(descriptor);
}

void MemoryFile::setContent(const QByteArray &content)
{
    const bool isWritten =
        ::ftruncate(descriptor, 0) == 0
        && ::pwrite(descriptor, content.constData(), static_cast<size_t>(content.size()), 0)
               == content.size();
    check(isWritten, "the file in memory cannot be written");
}

} // namespace fuzz
