#pragma once

#include <dlfcn.h>

/// The function of a library that a function of this program replaces:
///
///     extern "C" int fsync(int file)
///     {
///         static const auto real = realFunction<int(int)>("fsync");
///         return isFull ? -1 : real(file);
///     }
template <typename Function>
Function *realFunction(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}
