#pragma once

#include <QByteArray>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>

namespace faults {

/// Gives this process mounts of its own. False when the system does not allow it. Call it while
/// there is only one thread.
inline bool separateMounts()
{
    const uid_t user = ::getuid();
    const gid_t group = ::getgid();
    if (user == 0)
        return ::unshare(CLONE_NEWNS) == 0
               && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    const std::pair<const char *, QByteArray> maps[] = {
        {"/proc/self/setgroups", "deny"},
        {"/proc/self/uid_map", QByteArray::number(user) + ' ' + QByteArray::number(user) + " 1"},
        {"/proc/self/gid_map", QByteArray::number(group) + ' ' + QByteArray::number(group) + " 1"},
    };
    for (const auto &[path, text] : maps) {
        const int file = ::open(path, O_WRONLY | O_CLOEXEC);
        if (file < 0 || ::write(file, text.constData(), static_cast<size_t>(text.size())) < 0)
            return false;
        ::close(file);
    }
    return true;
}

} // namespace faults
