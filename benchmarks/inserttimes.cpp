#include "benchmarks/inserttimes.h"

#include "benchmarks/statistics.h"

#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;

InsertTimes InsertTimes::of(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(u"%1: %2"_s.arg(path, file.errorString()));
    InsertTimes result;
    std::vector<double> times;
    const QByteArrayList lines = file.readAll().trimmed().split('\n');
    for (const QByteArray &line : lines) {
        const QByteArrayList words = line.split(' ');
        times.push_back(words.first().toDouble());
        result.failed += words.size() > 1 ? 1 : 0;
    }
    std::sort(times.begin(), times.end());
    result.count = static_cast<int>(times.size());
    result.middle = median(times);
    result.late = times.at(times.size() * 99 / 100);
    result.longest = times.back();
    return result;
}
