#pragma once

#include <atomic>

/// One global object of a class that the whole process shares, made at its first use and never
/// destroyed, so that a worker that outlives main() still finds it.
/// Thread: any. No lock is taken: when two threads meet at the first use, one object wins.
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

    /// Puts `replacement` in the place of the object and returns the former one, which may be null.
    /// Both belong to the caller. For tests, before other threads use the object.
    static T *replace(T *replacement)
    {
        return object.exchange(replacement, std::memory_order_acq_rel);
    }

private:
    static inline std::atomic<T *> object{nullptr};
};
