#pragma once

#include <QElapsedTimer>
#include <QString>

namespace queuectl {

/// How far a long command is: one line on standard error, drawn over and over, at most five times a
/// second but for a new part and the end. Nothing is written where standard error is not a terminal
/// that can place its cursor, or where `isWanted` is false.
class Progress
{
public:
    /// Nothing is shown for a total of 0.
    explicit Progress(qint64 total, bool isWanted = true);
    /// Clears the line.
    ~Progress();
    Progress(const Progress &) = delete;

    /// `what` is the part that is being done now.
    void show(qint64 done, const QString &what = QString());

private:
    qint64 total;
    bool isShown;
    bool hasLine = false;
    qint64 shownDone = -1;
    QString shownPart;
    QElapsedTimer sinceDrawn;
};

/// The line for a terminal of `columns` columns, one of which stays free:
/// "[####....] 50%  2/4 what".
/// Where there is no room, the bar is left out first, then the end of the line.
QString progressLine(qint64 done, qint64 total, const QString &what, int columns);

} // namespace queuectl
