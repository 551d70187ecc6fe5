#include <cerrno>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

// Loaded before libfaketime, which cannot sleep until a time of the steady clock.
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec *moment, timespec *rest)
{
    return ::syscall(SYS_clock_nanosleep, clock, flags, moment, rest) == 0 ? 0 : errno;
}
