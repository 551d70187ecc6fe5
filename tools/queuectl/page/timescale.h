#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

namespace queuectl {

/// A span of time cut into parts for a chart: at most 61 of them, each a quarter of an hour, some
/// hours or some days long. They begin where an hour or a day of the till's zone does, so the first
/// and the last one may be shorter.
class TimeScale
{
public:
    struct Mark
    {
        /// Between 0 and 1.
        double position = 0;
        QString text;
    };

    /// An `end` that is not after `begin` is taken for a minute later.
    TimeScale(const QDateTime &begin, const QDateTime &end);

    QDateTime begin() const { return edges.first(); }
    QDateTime end() const { return edges.last(); }
    /// The length of a part that is not cut off.
    qint64 partSeconds() const;
    int count() const { return static_cast<int>(edges.size()) - 1; }
    /// The first moment of a part; of the part count(), the end.
    QDateTime edge(int part) const { return edges[part]; }
    /// The part that the time lies in, -1 outside.
    int partOf(const QDateTime &time) const;
    /// 0 at the beginning and before, 1 at the end and after it.
    double position(const QDateTime &time) const;
    /// Round times for an axis, nine at most, none close to either end.
    QList<Mark> marks() const;

private:
    QList<QDateTime> edges;
};

} // namespace queuectl
