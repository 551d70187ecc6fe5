#pragma once

#include <QMutex>

/// A value and the mutex to hold for every access to it.
template <typename T>
struct Guarded
{
    mutable QMutex mutex;
    T value;
};
