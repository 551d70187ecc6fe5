#pragma once

#include <QElapsedTimer>
#include <QString>

#include <algorithm>
#include <stdexcept>
#include <vector>

/// Ends the measurement with a text for the user.
[[noreturn]] inline void fail(const QString &text)
{
    throw std::runtime_error(text.toStdString());
}

/// The median of `values`, which must not be empty.
inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// The median time of `runs` calls of `call`, in milliseconds.
template <typename Call>
double median(int runs, Call call)
{
    std::vector<double> times;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        call();
        times.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    }
    return median(times);
}
