#include "shared/core/largedocuments.h"

#include <malloc.h>

namespace {

/// For smaller documents a walk through all free blocks does not pay.
constexpr qsizetype largeBytes = 256 * 1024;

thread_local bool isNoted = false;

} // namespace

void noteLargeDocument(qsizetype bytes)
{
    if (bytes >= largeBytes)
        isNoted = true;
}

void returnLargeDocuments()
{
    if (!isNoted)
        return;
    isNoted = false;
    ::malloc_trim(0);
}
