#pragma once

#include <QString>

/// How the till's INSERT fared, in milliseconds, as queue-tillwriter has printed it.
struct InsertTimes
{
    double middle = 0;
    /// The 99th percentile.
    double late = 0;
    double longest = 0;
    int count = 0;
    int failed = 0;

    /// Reads the program's output. Throws std::runtime_error.
    static InsertTimes of(const QString &path);
};
