#include "tests/fuzz/fuzz.h"

#include "rig/till.h"
#include "tests/faults/memoryfolder.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace fuzz {

namespace {

struct Process
{
    Process()
    {
        // Some programs write a file for each input.
        faults::useMemoryForTemporaryFolders();
        till = std::make_unique<rig::Till>();
        qputenv("QUEUE_ROOT", till->root().toUtf8());
        Log4Qt::LogManager::setThreshold(Log4Qt::Level::OFF_INT);
    }

    std::unique_ptr<rig::Till> till;
    int argumentCount = 1;
    char name[5] = "fuzz";
    char *arguments[2] = {name, nullptr};
    /// Outlives the database drivers, which use it at the end of the process.
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
    static const Process instance;
    return instance.till->root();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    // Most folders exist already.
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
