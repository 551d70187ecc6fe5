#include "rig/processuse.h"

#include "rig/error.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <ctime>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

QStringList descriptorPaths(qint64 processId)
{
    const QDir folder(u"/proc/%1/fd"_s.arg(processId));
    QStringList result;
    const QStringList names =
        folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names)
        result.append(folder.filePath(name));
    return result;
}

bool isSocket(const QString &descriptorPath)
{
    char target[64] = {};
    const QByteArray path = QFile::encodeName(descriptorPath);
    return ::readlink(path.constData(), target, sizeof target - 1) > 0
           && QByteArray(target).startsWith("socket:");
}

[[noreturn]] void failOnGone(qint64 processId)
{
    throw Error(u"process %1 has ended"_s.arg(processId));
}

} // namespace

ProcessUse::ProcessUse(qint64 processId)
    : processId(processId)
{
}

qint64 ProcessUse::memory() const
{
    return statusField("VmRSS");
}

qint64 ProcessUse::peakMemory() const
{
    return statusField("VmHWM");
}

int ProcessUse::threads() const
{
    return static_cast<int>(statusField("Threads"));
}

int ProcessUse::descriptors() const
{
    return static_cast<int>(descriptorPaths(processId).size());
}

int ProcessUse::sockets() const
{
    const QStringList paths = descriptorPaths(processId);
    return static_cast<int>(std::count_if(paths.cbegin(), paths.cend(), isSocket));
}

std::chrono::nanoseconds ProcessUse::processorTime() const
{
    clockid_t clock = 0;
    timespec time = {};
    if (::clock_getcpuclockid(static_cast<pid_t>(processId), &clock) != 0
        || ::clock_gettime(clock, &time) != 0)
        failOnGone(processId);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

qint64 ProcessUse::writtenBytes() const
{
    QFile io(u"/proc/%1/io"_s.arg(processId));
    const QByteArray name("write_bytes:");
    if (io.open(QIODevice::ReadOnly)) {
        const QByteArrayList fields = io.readAll().split('\n');
        for (const QByteArray &field : fields) {
            if (field.startsWith(name))
                return field.mid(name.size()).trimmed().toLongLong();
        }
    }
    failOnGone(processId);
}

qint64 ProcessUse::statusField(const QByteArray &name) const
{
    QFile status(u"/proc/%1/status"_s.arg(processId));
    if (!status.open(QIODevice::ReadOnly))
        failOnGone(processId);
    const QByteArrayList fields = status.readAll().split('\n');
    for (const QByteArray &field : fields) {
        if (field.startsWith(name + ':'))
            return field.mid(name.size() + 1).simplified().split(' ').first().toLongLong();
    }
    // A zombie has no memory entries.
    failOnGone(processId);
}

} // namespace rig
