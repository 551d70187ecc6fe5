#include "tools/queuectl/watch/watchlines.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/text.h"

#include <QHash>

#include <algorithm>
#include <limits>
#include <tuple>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int narrowestType = 4;
constexpr int widestType = 22;
/// On a narrow screen the numbers count more than the end of a long name.
constexpr int narrowScreen = 60;
constexpr int widestTypeOnNarrow = 14;
constexpr int marksWidth = 4;
constexpr int changeWidth = 5;
constexpr int ageWidth = 8;
constexpr int failureGap = 2;
constexpr int narrowestFailure = 12;
/// With less than this, the count of the day gives way to the failure.
constexpr int readableFailure = 16;
constexpr int longestParagraph = 3;
constexpr int lowScreen = 10;
constexpr qint64 million = 1'000'000;
const QString noValue = u"-"_s;
const QString pieceGap = u"   "_s;

QString numberText(qint64 number)
{
    return QString::number(number);
}

/// With a sign, in thousands or millions where it is large; empty for none.
QString changeText(qint64 change)
{
    if (change == 0)
        return {};
    const QString sign = change > 0 ? u"+"_s : u"-"_s;
    const qint64 size = qAbs(change);
    if (size < 1000)
        return sign + numberText(size);
    return size < million ? sign + numberText(size / 1000) + u'k'
                          : sign + numberText(size / million) + u'M';
}

/// What waits and what was delivered, compared with the look before.
struct Change
{
    qint64 waiting = 0;
    qint64 delivered = 0;
    qint64 dropped = 0;
    /// A failure began, ended or became another one, or a message was dropped.
    bool isFailureNew = false;
};

/// At midnight the counts of the day begin at 0 again.
qint64 growth(qint64 now, qint64 before)
{
    return std::max<qint64>(0, now - before);
}

bool canCompare(const WatchValues &now, const WatchValues &before)
{
    return before.rowsTime.isValid() && now.databaseFault.isEmpty();
}

Change changeOf(const WatchedType &now, const WatchedType &before)
{
    return {now.waiting - before.waiting, growth(now.delivered, before.delivered),
            growth(now.dropped, before.dropped),
            now.failingSince.isValid() != before.failingSince.isValid() || now.cause != before.cause
                || now.answer != before.answer || now.dropped > before.dropped};
}

/// A line of the table before it is laid out.
struct Entry
{
    const WatchedType *type = nullptr;
    Urgency urgency = Urgency::None;
    Change change;
};

QList<Entry> entriesOf(const WatchValues &now, const WatchValues &before)
{
    QHash<QString, const WatchedType *> former;
    for (const WatchedType &type : before.types)
        former.insert(type.type, &type);
    QList<Entry> entries;
    for (const WatchedType &type : now.types) {
        Entry entry{&type, urgencyOf(type, now.time), {}};
        if (canCompare(now, before)) {
            const WatchedType *known = former.value(type.type);
            entry.change = changeOf(type, known ? *known : WatchedType());
        }
        entries.append(entry);
    }
    return entries;
}

/// Lower is more urgent: those that need somebody by their oldest row, the others by their number.
std::tuple<int, qint64, int> rankOf(const Entry &entry)
{
    const WatchedType &type = *entry.type;
    const qint64 oldest = type.oldest.isValid() ? type.oldest.toMSecsSinceEpoch()
                                                : std::numeric_limits<qint64>::max();
    return {-static_cast<int>(entry.urgency),
            entry.urgency == Urgency::None ? -type.waiting : oldest, -type.dropped};
}

/// The most urgent `count` entries: the order of a screen must not change with every delivery, so
/// those that are well are ordered by name.
QList<Entry> chosen(QList<Entry> entries, qsizetype count)
{
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &left, const Entry &right) {
        return rankOf(left) < rankOf(right);
    });
    entries = entries.first(std::min(entries.size(), count));
    const auto firstCalm = std::find_if(entries.begin(), entries.end(), [](const Entry &entry) {
        return entry.urgency == Urgency::None;
    });
    std::stable_sort(firstCalm, entries.end(), [](const Entry &left, const Entry &right) {
        return left.type->type < right.type->type;
    });
    return entries;
}

QString sinceText(const QDateTime &time, const QDateTime &now)
{
    return time.toString(time.date() == now.date() ? u"HH:mm"_s : u"yyyy-MM-dd"_s);
}

QString failureText(const WatchedType &type, const QDateTime &now)
{
    if (!type.cause)
        return type.dropped == 0 ? QString()
                                 : text("dropped today: %1", "снято за день: %1").arg(type.dropped);
    const QDateTime since = type.failingSince.isValid() ? type.failingSince : type.answered;
    QString result = since.isValid() ? sinceText(since, now) + u' ' : QString();
    result += causeText(*type.cause);
    return type.answer.isEmpty() ? result : result + u": "_s + type.answer;
}

/// Pieces in lines, none of them broken unless it is wider than a line.
QList<ScreenLine> flow(const QList<Span> &pieces, int columns)
{
    QList<ScreenLine> lines;
    int width = 0;
    for (const Span &piece : pieces) {
        const int more = displayWidth(piece.text);
        if (lines.isEmpty() || width + pieceGap.size() + more > columns) {
            lines.append({{cutToWidth(piece.text, columns), piece.tone}});
            width = more;
            continue;
        }
        lines.last().append({pieceGap});
        lines.last().append(piece);
        width += static_cast<int>(pieceGap.size()) + more;
    }
    return lines;
}

/// The text by its words, the last line cut where it has more.
QList<ScreenLine> paragraph(const QString &text, Tone tone, int columns)
{
    QList<ScreenLine> lines;
    QString rest = escaping::escaped(text);
    while (!rest.isEmpty() && lines.size() + 1 < longestParagraph && displayWidth(rest) > columns) {
        qsizetype end = rest.size();
        while (end > 0 && displayWidth(rest.first(end)) > columns)
            end = rest.lastIndexOf(u' ', end - 1);
        if (end <= 0)
            break;
        lines.append({{rest.first(end), tone}});
        rest = rest.mid(end + 1);
    }
    lines.append({{cutToWidth(rest, columns), tone}});
    return lines;
}

/// A state that is not good is seen without colours too.
Span statePiece(const QString &title, const QString &state)
{
    const Tone tone = stateTone(state);
    const QString mark = tone == Tone::Good ? QString() : tone == Tone::Bad ? u"!! "_s : u"! "_s;
    return {mark + title + u": "_s + stateText(state), tone == Tone::Good ? Tone::Plain : tone};
}

Span countPiece(const QString &title, qint64 count, qint64 change, Tone tone = Tone::Plain)
{
    // The pieces after it stay where they are while the change comes and goes.
    return {title + u": "_s + numberText(count) + u' '
                + changeText(change).leftJustified(changeWidth),
            change != 0 ? Tone::Strong : tone};
}

QString serviceState(PortState state)
{
    switch (state) {
    case PortState::Service:
        return u"ok"_s;
    case PortState::Other:
        return u"other"_s;
    case PortState::Nobody:
        break;
    }
    return u"silent"_s;
}

QList<Span> statePieces(const WatchValues &now, const WatchValues &before)
{
    const bool isAnswering = now.service == PortState::Service;
    QList<Span> pieces;
    if (isAnswering && !now.role.isEmpty() && stateTone(now.role) != Tone::Good)
        pieces.append(statePiece(text("Service", "Служба"), now.role));
    else
        pieces.append(statePiece(text("Service", "Служба"), serviceState(now.service)));
    pieces.append(statePiece(text("Database", "База данных"),
                             now.databaseFault.isEmpty() ? u"ok"_s : u"unreachable"_s));
    if (now.databaseErrors > 0)
        pieces.append(countPiece(
            text("Database errors", "Ошибок базы"), now.databaseErrors,
            before.time.isValid() ? growth(now.databaseErrors, before.databaseErrors) : 0,
            Tone::Careful));
    return pieces;
}

QList<Span> sumPieces(const WatchValues &now, const WatchValues &before)
{
    Change change;
    if (canCompare(now, before))
        change = {now.waiting() - before.waiting(), growth(now.delivered(), before.delivered()),
                  growth(now.dropped(), before.dropped()), false};
    QList<Span> pieces{countPiece(text("Waiting", "Ждут"), now.waiting(), change.waiting)};
    if (!now.journalFault.isEmpty())
        return pieces;
    pieces.append(countPiece(text("Delivered today", "Доставлено за день"), now.delivered(),
                             change.delivered));
    pieces.append(countPiece(text("Dropped", "Снято"), now.dropped(), change.dropped,
                             now.dropped() > 0 ? Tone::Careful : Tone::Plain));
    return pieces;
}

QList<ScreenLine> headLines(const WatchValues &now, const WatchValues &before,
                            const WatchFrame &frame)
{
    QList<Span> title;
    if (now.time.isValid())
        title.append({now.time.toString(u"HH:mm:ss"_s), Tone::Strong});
    if (frame.readingSeconds > 0)
        title.append(
            {text("reading for %1 s, q ends", "чтение: %1 с, q — выход").arg(frame.readingSeconds),
             Tone::Careful});
    else
        title.append(
            {text("every %1 s, q ends", "каждые %1 с, q — выход").arg(frame.intervalSeconds)});
    title.append({escaping::escaped(frame.host), Tone::Faint});
    QList<ScreenLine> lines = flow(title, frame.columns).first(1);
    if (!now.time.isValid())
        return lines;
    lines += flow(statePieces(now, before), frame.columns);
    if (!now.databaseFault.isEmpty())
        lines += paragraph(now.databaseFault, Tone::Bad, frame.columns);
    if (!now.rowsTime.isValid())
        return lines;
    if (!now.databaseFault.isEmpty())
        lines.append({{cutToWidth(text("Below: as it was at %1", "Ниже — как было в %1")
                                      .arg(timeText(now.rowsTime)),
                                  frame.columns),
                       Tone::Careful}});
    lines += flow(sumPieces(now, before), frame.columns);
    if (!now.journalFault.isEmpty())
        lines += paragraph(now.journalFault, Tone::Careful, frame.columns);
    return lines;
}

/// The columns of the table, by the width of the screen and what it has to show.
struct Layout
{
    int type = 0;
    int waiting = 0;
    /// 0: left out.
    int today = 0;
    int failure = 0;
};

/// Over all types, so that nothing moves when the choice among them changes.
Layout layoutOf(const WatchValues &now, int columns)
{
    Layout layout;
    int digits = 1;
    int dayDigits = 1;
    layout.type = std::max(narrowestType, displayWidth(text("Type", "Тип")));
    for (const WatchedType &type : now.types) {
        layout.type = std::max(layout.type, displayWidth(escaping::escaped(type.type)));
        digits = std::max(digits, static_cast<int>(numberText(type.waiting).size()));
        dayDigits = std::max(dayDigits, static_cast<int>(numberText(type.delivered).size()));
    }
    layout.type = std::min(layout.type, columns < narrowScreen ? widestTypeOnNarrow : widestType);
    layout.waiting = std::max(digits, displayWidth(text("Waiting", "Ждут")));
    layout.today = std::max(dayDigits, displayWidth(text("Today", "За день")));

    const int left = columns - marksWidth - layout.type - 1 - layout.waiting - 1 - changeWidth
                     - ageWidth - failureGap;
    const int dayWidth = 1 + layout.today + 1 + changeWidth;
    layout.failure = left - dayWidth;
    if (layout.failure < readableFailure || !now.journalFault.isEmpty()) {
        layout.today = 0;
        layout.failure = left;
    }
    if (layout.failure < narrowestFailure)
        layout.failure = 0;
    return layout;
}

ScreenLine titleLine(const Layout &layout)
{
    QString line = QString(marksWidth, u' ') + fitted(text("Type", "Тип"), layout.type) + u' '
                   + fitted(text("Waiting", "Ждут"), layout.waiting, true)
                   + QString(changeWidth + 1, u' ')
                   + fitted(text("Oldest", "Старшей"), ageWidth, true);
    if (layout.today > 0)
        line += u' ' + fitted(text("Today", "За день"), layout.today, true)
                + QString(changeWidth + 1, u' ');
    if (layout.failure > 0)
        line += QString(failureGap, u' ')
                + fitted(text("Last failure", "Последний отказ"), layout.failure);
    return {{line, Tone::Strong}};
}

QString marks(const Entry &entry)
{
    const QString urgency = entry.urgency == Urgency::Bad       ? u"!!"_s
                            : entry.urgency == Urgency::Careful ? u"! "_s
                                                                : u"  "_s;
    return urgency + (entry.change.isFailureNew ? u"* "_s : u"  "_s);
}

Tone entryTone(const Entry &entry)
{
    switch (entry.urgency) {
    case Urgency::Bad:
        return Tone::Bad;
    case Urgency::Careful:
        return Tone::Careful;
    case Urgency::None:
        break;
    }
    return entry.type->waiting > 0   ? Tone::Plain
           : entry.type->dropped > 0 ? Tone::Careful
                                     : Tone::Faint;
}

ScreenLine typeLine(const Entry &entry, const WatchValues &now, const Layout &layout)
{
    const WatchedType &type = *entry.type;
    const bool isFresh = now.databaseFault.isEmpty();
    const Tone tone = isFresh ? entryTone(entry) : Tone::Faint;
    const auto countTone = [&](qint64 change) {
        return change != 0                     ? Tone::Strong
               : type.waiting == 0 || !isFresh ? Tone::Faint
                                               : Tone::Plain;
    };
    const QString age =
        type.oldest.isValid() ? shortDuration(type.oldest.secsTo(now.time)) : noValue;
    ScreenLine line{
        {marks(entry) + fitted(type.type.isEmpty() ? noValue : type.type, layout.type) + u' ',
         tone},
        {fitted(numberText(type.waiting), layout.waiting, true) + u' '
             + fitted(changeText(entry.change.waiting), changeWidth),
         countTone(entry.change.waiting)},
        {fitted(age, ageWidth, true), tone},
    };
    if (layout.today > 0)
        line.append({u' ' + fitted(numberText(type.delivered), layout.today, true) + u' '
                         + fitted(changeText(entry.change.delivered), changeWidth),
                     countTone(entry.change.delivered)});
    if (layout.failure > 0)
        line.append(
            {QString(failureGap, u' ') + fitted(failureText(type, now.time), layout.failure),
             entry.change.isFailureNew ? Tone::Strong : tone});
    return line;
}

ScreenLine moreLine(const WatchValues &now, const QList<Entry> &shown)
{
    qint64 rows = now.waiting();
    for (const Entry &entry : shown)
        rows -= entry.type->waiting;
    const qsizetype types = now.types.size() + now.unlistedTypes - shown.size();
    return {{QString(marksWidth, u' ')
                 + text("and %1 more, rows: %2", "и ещё %1, строк: %2")
                       .arg(numberText(types), numberText(rows)),
             Tone::Faint}};
}

} // namespace

Screen watchScreen(const WatchValues &now, const WatchValues &before, const WatchFrame &frame)
{
    Screen screen{frame.columns, frame.rows, headLines(now, before, frame)};
    if (!now.rowsTime.isValid())
        return screen;
    if (frame.rows >= lowScreen)
        screen.lines.append(ScreenLine());
    const QList<Entry> entries = entriesOf(now, before);
    if (entries.isEmpty()) {
        screen.lines.append({{text("Nothing waits.", "Очередь пуста."), Tone::Good}});
        return screen;
    }
    const Layout layout = layoutOf(now, frame.columns);
    screen.lines.append(titleLine(layout));
    const qsizetype room = std::max<qsizetype>(0, frame.rows - screen.lines.size());
    const bool isAllShown = entries.size() <= room && now.unlistedTypes == 0;
    const QList<Entry> shown =
        chosen(entries, isAllShown ? room : std::max<qsizetype>(0, room - 1));
    for (const Entry &entry : shown)
        screen.lines.append(typeLine(entry, now, layout));
    if (!isAllShown)
        screen.lines.append(moreLine(now, shown));
    return screen;
}

} // namespace queuectl
