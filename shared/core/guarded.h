#pragma once

#include <QMutex>

#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

/// A value that can be reached only with its mutex locked. lock() waits for the mutex and returns a
/// handle. The handle points to the value and holds the mutex until its own end:
///
///     state->startIds.lock()->insert(type, id);       // held for one expression
///     const auto ids = state->startIds.lock();        // held for the block
///
/// Thread: any. The mutex is not recursive: a thread that locks it again deadlocks. Where two are
/// locked together, their owner documents the order.
template <typename T>
class Guarded
{
public:
    template <typename Value>
    class [[nodiscard]] Handle
    {
    public:
        Value *operator->() const { return value; }
        Value &operator*() const & { return *value; }
        /// A temporary handle unlocks at the end of its expression, so a range-for loop over its
        /// value would run without the lock. Name the handle, or use copy().
        Value &operator*() const && = delete;

    private:
        friend class Guarded;
        Handle(std::unique_lock<QMutex> held, Value *value)
            : held(std::move(held))
            , value(value)
        {
        }

        std::unique_lock<QMutex> held;
        Value *value;
    };

    Guarded() = default;
    explicit Guarded(T initial)
        : value(std::move(initial))
    {
    }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    Handle<T> lock() { return {std::unique_lock(mutex), &value}; }
    Handle<const T> lock() const { return {std::unique_lock(mutex), &value}; }
    /// The current value. Qt containers are implicitly shared: if the value changes on another
    /// thread, detach() the copy while a handle is held.
    T copy() const
    {
        const auto handle = lock();
        return *handle;
    }
    /// Nothing when the mutex was not free within `patience`.
    std::optional<Handle<T>> tryLock(std::chrono::milliseconds patience)
    {
        std::unique_lock held(mutex, patience);
        if (!held)
            return {};
        return Handle<T>(std::move(held), &value);
    }

private:
    mutable QMutex mutex;
    T value{};
};
