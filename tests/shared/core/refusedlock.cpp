#include "tests/shared/core/refusedlock.h"

#include "tests/support/realfunction.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>

int lockError = 0;

extern "C" int fcntl(int file, int command, ...)
{
    static const auto next = realFunction<int(int, int, ...)>("fcntl");
    va_list rest;
    va_start(rest, command);
    void *const argument = va_arg(rest, void *);
    va_end(rest);
    if (command != F_OFD_SETLK || lockError == 0)
        return next(file, command, argument);
    errno = lockError;
    return -1;
}
