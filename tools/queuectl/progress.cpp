#include "tools/queuectl/progress.h"

#include "tools/queuectl/terminal.h"
#include "tools/queuectl/watch/screen.h"

#include <algorithm>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 drawIntervalMs = 200;
constexpr int barWidth = 40;

int columnsOfErrors()
{
    winsize size{};
    ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size);
    return size.ws_col > 0 ? size.ws_col : usualColumns;
}

} // namespace

Progress::Progress(qint64 total, bool isWanted)
    : total(total)
    , isShown(isWanted && total > 0 && ::isatty(STDERR_FILENO) == 1
              && placesCursor(qgetenv("TERM")))
{
}

Progress::~Progress()
{
    if (!hasLine)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

void Progress::show(qint64 done, const QString &what)
{
    if (!isShown)
        return;
    const bool isEnd = done >= total && shownDone < total;
    if (hasLine && !isEnd && what == shownPart && sinceDrawn.elapsed() < drawIntervalMs)
        return;
    shownPart = what;
    hasLine = true;
    shownDone = done;
    sinceDrawn.start();
    const QByteArray line = progressLine(done, total, what, columnsOfErrors()).toUtf8();
    std::fputs(("\r" + line + "\033[K").constData(), stderr);
    std::fflush(stderr);
}

QString progressLine(qint64 done, qint64 total, const QString &what, int columns)
{
    const qint64 percent = std::clamp<qint64>(done * 100 / total, 0, 100);
    const int filled = static_cast<int>(percent * barWidth / 100);
    const QString bar = u'[' + QString(filled, u'#') + QString(barWidth - filled, u'.') + u"] "_s;
    QString line = u"%1%  %2/%3"_s.arg(QString::number(percent), QString::number(done),
                                       QString::number(total));
    if (!what.isEmpty())
        line += u"  "_s + what;
    const int room = columns - 1;
    if (displayWidth(bar + line) <= room)
        line.prepend(bar);
    return cutToWidth(line, room);
}

} // namespace queuectl
