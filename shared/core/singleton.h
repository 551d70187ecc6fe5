#pragma once

#include <atomic>

/// One global object of a class, made at its first use and never destroyed, so that a worker that
/// outlives main() can still use it.
/// Thread: any. Lock-free: when two threads create the object at once, one object is kept.
template <typename T>
class Singleton
{
public:
    static T *instance()
    {
        T *current = object.load(std::memory_order_acquire);
        if (current)
            return current;
        T *fresh = new T;
        if (object.compare_exchange_strong(current, fresh, std::memory_order_acq_rel))
            return fresh;
        delete fresh;
        return current;
    }

    /// Replaces the object and returns the former one, which may be null. The caller owns both. For
    /// tests, before other threads use the object.
    static T *replace(T *replacement)
    {
        return object.exchange(replacement, std::memory_order_acq_rel);
    }

private:
    static inline std::atomic<T *> object{nullptr};
};
