// Preloaded before the C library (LD_PRELOAD): each sync takes QUEUE_BENCH_SYNC_MS milliseconds
// longer, as on a slower disk.

#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <thread>

namespace {

int slowly(const char *name, int descriptor)
{
    using Sync = int (*)(int);
    const auto sync = reinterpret_cast<Sync>(dlsym(RTLD_NEXT, name));
    const int result = sync(descriptor);
    static const char *const more = std::getenv("QUEUE_BENCH_SYNC_MS");
    if (more)
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(more)));
    return result;
}

} // namespace

extern "C" int fdatasync(int descriptor)
{
    return slowly("fdatasync", descriptor);
}

extern "C" int fsync(int descriptor)
{
    return slowly("fsync", descriptor);
}
