#pragma once

#include <QMutex>

#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

/// A value that nobody reaches without its mutex. lock() waits for the mutex and returns a handle
/// that points to the value and holds the mutex until its end:
///
///     state->startIds.lock()->insert(type, id);       // held for one expression
///     const auto ids = state->startIds.lock();        // held for the block
///
/// Thread: any. The mutex is not recursive: a thread that holds a handle and locks again waits for
/// ever. The owner says in which order two of them are locked.
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
        /// A handle without a name frees the mutex when its expression ends, and a loop over the
        /// value would go on without it. Name the handle, or take a copy().
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
    /// The value as it is now. A container of Qt's shares its entries with its copies: detach() the
    /// copy while the handle is held if the value changes on another thread.
    T copy() const
    {
        const auto handle = lock();
        return *handle;
    }
    /// Nothing when others have held the mutex for all of `patience`.
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
