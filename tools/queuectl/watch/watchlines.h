#pragma once

#include "tools/queuectl/watch/screen.h"
#include "tools/queuectl/watch/watchvalues.h"

#include <QDateTime>
#include <QString>

namespace queuectl {

/// What the screen says beside the values.
struct WatchFrame
{
    QString host;
    int intervalSeconds = 0;
    /// How long a look has been going on; 0 while that is not worth a word.
    int readingSeconds = 0;
    int columns = 80;
    int rows = 24;
};

/// The screen for these values: service and database, sums, then a line for each type. What has
/// changed since `before`, the look before this one, is marked with signs, not by its tone alone.
/// Where there are more types than lines, the most urgent ones have theirs, and the last line
/// counts the others. Values without a time: nothing has been read yet.
Screen watchScreen(const WatchValues &now, const WatchValues &before, const WatchFrame &frame);

} // namespace queuectl
