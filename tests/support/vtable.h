#pragma once

#include <cstddef>
#include <cstring>

/// The place of a virtual operation in the table of its class, as its member pointer holds it on
/// this platform; -1 for an operation that is not virtual. Name one of several overloads with a
/// cast.
template <typename Operation>
int slotOf(Operation operation)
{
    struct
    {
        std::ptrdiff_t function;
        std::ptrdiff_t adjustment;
    } fields = {};
    static_assert(sizeof(fields) == sizeof(operation));
    std::memcpy(&fields, &operation, sizeof(fields));
#if defined(__aarch64__) || defined(__arm__)
    const bool isVirtual = fields.adjustment & 1;
    const std::ptrdiff_t offset = fields.function;
#else
    const bool isVirtual = fields.function & 1;
    const std::ptrdiff_t offset = fields.function - 1;
#endif
    return isVirtual ? static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void *))) : -1;
}
