#pragma once

#include "tools/queuectl/page/html.h"
#include "tools/queuectl/page/timescale.h"

#include <QList>
#include <QString>

namespace queuectl {

// Charts as inline SVG, as wide as their place and with letters of one size everywhere. Each is
// told to those who do not see it by a title and a description; what belongs together is told apart
// by place and words, the colour only helps.

/// The title is short, the description has the figures in words.
struct ChartText
{
    QString title;
    QString description;
};

/// Columns over time with a line of words above. The highest column is as high as the lane.
struct Lane
{
    QString title;
    /// A class of the page's style: `good`, `careful`, `bad`.
    const char *tone;
    const QList<int> &values;
    int height = 0;
};

/// Lanes one below the other over one axis of time.
void writeColumns(Html &html, const ChartText &words, const TimeScale &scale,
                  const QList<Lane> &lanes);

/// The same lanes without words and axis, small enough for a row of a table.
void writeSparkline(Html &html, const ChartText &words, const TimeScale &scale,
                    const QList<Lane> &lanes);

/// A few bars side by side, small enough for a row of a table; `highest` is as high as the place.
void writeBars(Html &html, const ChartText &words, const char *tone, const QList<int> &values,
               int highest);

/// A stretch of a line.
struct Stretch
{
    QDateTime begin;
    QDateTime end;
};

/// Stretches of time with a line of words above.
struct Line
{
    QString left;
    QString right;
    const char *tone;
    QList<Stretch> stretches;
};

/// Lines one below the other over one axis of time.
void writeLines(Html &html, const ChartText &words, const TimeScale &scale,
                const QList<Line> &lines);

} // namespace queuectl
