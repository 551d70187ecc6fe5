#include "tools/queuectl/watch/screen.h"

#include "shared/text/escaping.h"

#include <algorithm>
#include <cwchar>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// To place the cursor takes more bytes than to write a few characters once more.
constexpr qsizetype closeTogether = 6;
const QByteArray clearAll = "\033[0m\033[H\033[2J";
const QByteArray clearRest = "\033[K";
const QByteArray plainTone = "\033[0m";

struct Cell
{
    char32_t letter = U' ';
    int width = 1;
    Tone tone = Tone::Plain;

    bool operator==(const Cell &) const = default;
};

using Cells = QList<Cell>;

/// The last guard of the terminal: texts from outside are escaped before they come here.
bool isVisible(char32_t letter)
{
    switch (QChar::category(letter)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

/// The letters that are drawn, with their widths.
Cells cellsOf(const QString &text, Tone tone)
{
    Cells cells;
    // A letter and its accent become one letter where there is such a letter.
    const QList<uint> letters = text.normalized(QString::NormalizationForm_C).toUcs4();
    for (const uint letter : letters) {
        const int width = isVisible(letter) ? ::wcwidth(static_cast<wchar_t>(letter)) : -1;
        if (width < 0)
            cells.append({U'?', 1, tone});
        else if (width > 0)
            cells.append({static_cast<char32_t>(letter), width, tone});
    }
    return cells;
}

int widthOf(const Cells &cells)
{
    int width = 0;
    for (const Cell &cell : cells)
        width += cell.width;
    return width;
}

/// As many cells from the front as fit.
Cells cutCells(const Cells &cells, int columns)
{
    int width = 0;
    qsizetype count = 0;
    while (count < cells.size() && width + cells[count].width <= columns)
        width += cells[count++].width;
    return cells.first(count);
}

QString textOf(const Cells &cells)
{
    QString text;
    for (const Cell &cell : cells)
        text += QString::fromUcs4(&cell.letter, 1);
    return text;
}

Cells cellsOf(const ScreenLine &line, int columns)
{
    Cells cells;
    for (const Span &span : line)
        cells += cellsOf(span.text, span.tone);
    cells = cutCells(cells, columns);
    while (!cells.isEmpty() && cells.last().letter == U' ')
        cells.removeLast();
    return cells;
}

/// Whether each letter takes one column on every terminal: terminals differ about wide ones.
bool hasPlainWidths(const Cells &cells)
{
    return std::all_of(cells.cbegin(), cells.cend(),
                       [](const Cell &cell) { return cell.width == 1; });
}

/// Writes at the cursor.
class Pen
{
public:
    explicit Pen(bool withColours)
        : withColours(withColours)
    {
    }

    void moveTo(qsizetype row, qsizetype column)
    {
        bytes += "\033[" + QByteArray::number(row + 1) + ';' + QByteArray::number(column + 1) + 'H';
    }
    void write(const Cells &cells, qsizetype from, qsizetype end)
    {
        for (qsizetype at = from; at < end; ++at) {
            setTone(cells[at].tone);
            bytes += QString::fromUcs4(&cells[at].letter, 1).toUtf8();
        }
        setTone(Tone::Plain);
    }

    QByteArray bytes;

private:
    void setTone(Tone wanted)
    {
        if (!withColours || wanted == tone)
            return;
        if (tone != Tone::Plain)
            bytes += plainTone;
        bytes += toneStart(wanted).toLatin1();
        tone = wanted;
    }

    bool withColours;
    Tone tone = Tone::Plain;
};

void updateLine(Pen &pen, qsizetype row, const Cells &before, const Cells &now)
{
    if (before == now)
        return;
    if (!hasPlainWidths(before) || !hasPlainWidths(now)) {
        pen.moveTo(row, 0);
        pen.write(now, 0, now.size());
        pen.bytes += clearRest;
        return;
    }
    const auto differs = [&](qsizetype at) {
        return at >= before.size() || before[at] != now[at];
    };
    qsizetype at = 0;
    while (at < now.size()) {
        if (!differs(at)) {
            ++at;
            continue;
        }
        qsizetype end = at + 1;
        for (qsizetype next = end; next < now.size() && next - end < closeTogether; ++next) {
            if (differs(next))
                end = next + 1;
        }
        pen.moveTo(row, at);
        pen.write(now, at, end);
        at = end;
    }
    if (before.size() > now.size()) {
        pen.moveTo(row, now.size());
        pen.bytes += clearRest;
    }
}

} // namespace

int displayWidth(const QString &text)
{
    return widthOf(cellsOf(text, Tone::Plain));
}

QString cutToWidth(const QString &text, int width)
{
    const Cells cells = cellsOf(escaping::escaped(text), Tone::Plain);
    if (widthOf(cells) <= width)
        return textOf(cells);
    return width < 1 ? QString() : textOf(cutCells(cells, width - 1)) + u'…';
}

QString fitted(const QString &text, int width, bool isRight)
{
    const QString shown = cutToWidth(text, width);
    const QString padding(std::max(0, width - displayWidth(shown)), u' ');
    return isRight ? padding + shown : shown + padding;
}

QString screenText(const Screen &screen)
{
    QString result;
    for (const ScreenLine &line : screen.lines)
        result += textOf(cellsOf(line, screen.columns)) + u'\n';
    return result;
}

QByteArray screenUpdate(const Screen &before, const Screen &now, bool withColours)
{
    const bool isWhole = before.columns != now.columns || before.rows != now.rows;
    Pen pen(withColours);
    if (isWhole)
        pen.bytes = clearAll;
    for (qsizetype row = 0; row < now.rows; ++row) {
        const Cells former = isWhole ? Cells() : cellsOf(before.lines.value(row), before.columns);
        updateLine(pen, row, former, cellsOf(now.lines.value(row), now.columns));
    }
    return pen.bytes;
}

} // namespace queuectl
