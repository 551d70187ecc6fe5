#pragma once

#include <QMutex>

#include <memory>

/// Creates objects that tests can replace.
/// Thread: any.
template <typename T>
class MockFactory
{
public:
    /// The installed mock, otherwise a new object.
    static std::shared_ptr<T> create()
    {
        const QMutexLocker locker(&mutex);
        if (mock)
            return mock;
        return std::make_shared<T>();
    }

    /// From now on create() returns `replacement`; null restores the default.
    static void install(std::shared_ptr<T> replacement)
    {
        const QMutexLocker locker(&mutex);
        mock.swap(replacement);
    }

private:
    static inline QMutex mutex;
    static inline std::shared_ptr<T> mock;
};
