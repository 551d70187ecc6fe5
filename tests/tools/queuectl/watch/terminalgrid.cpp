#include "tests/tools/queuectl/watch/terminalgrid.h"

#include <algorithm>

using namespace Qt::StringLiterals;

TerminalGrid::TerminalGrid(int columns, int rows)
    : columns(columns)
    , rows(rows)
    , usual(rows, QList<Cell>(columns))
    , alternate(rows, QList<Cell>(columns))
{
}

void TerminalGrid::write(const QByteArray &bytes)
{
    // A letter or a sequence may arrive in two pieces.
    const QByteArray all = rest + bytes;
    rest.clear();
    qsizetype at = 0;
    while (at < all.size()) {
        const auto byte = static_cast<unsigned char>(all[at]);
        if (byte == 0x1b) {
            qsizetype end = at + 2;
            while (end < all.size() && (all[end] < '@' || all[end] > '~'))
                ++end;
            if (end >= all.size())
                break;
            const QString parameters = QString::fromLatin1(all.mid(at + 2, end - at - 2));
            if (all[at + 1] == '[')
                control(parameters, QLatin1Char(all[end]));
            else
                unknownSequences.append(QString::fromLatin1(all.mid(at, end - at + 1)));
            at = end + 1;
            continue;
        }
        const qsizetype length = byte < 0x80 ? 1 : byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
        if (at + length > all.size())
            break;
        if (byte == '\r')
            column = 0;
        else if (byte == '\n')
            lineFeed();
        else if (byte < 0x20)
            unknownSequences.append(u"control "_s + QString::number(byte));
        else
            put(QString::fromUtf8(all.mid(at, length)));
        at += length;
    }
    rest = all.mid(at);
}

QStringList TerminalGrid::lines() const
{
    QStringList result;
    for (const QList<Cell> &line : *grid) {
        QString text;
        for (const Cell &cell : line)
            text += cell.letter;
        while (text.endsWith(u' '))
            text.chop(1);
        result.append(text);
    }
    return result;
}

void TerminalGrid::put(const QString &letter)
{
    if (column == columns && wraps) {
        column = 0;
        lineFeed();
    }
    (*grid)[row][std::min(column, columns - 1)] = {letter, tone};
    column = std::min(column + 1, columns);
}

void TerminalGrid::lineFeed()
{
    if (row + 1 < rows) {
        ++row;
        return;
    }
    grid->removeFirst();
    grid->append(QList<Cell>(columns));
}

void TerminalGrid::control(const QString &parameters, QChar kind)
{
    const QString sequence = parameters + kind;
    if (kind == u'H') {
        const QStringList place = parameters.split(u';');
        row = std::clamp(place.value(0).toInt() - 1, 0, rows - 1);
        column = std::clamp(place.value(1).toInt() - 1, 0, columns - 1);
    } else if (kind == u'm') {
        tone = parameters == u"0" ? QString() : parameters;
    } else if (sequence == u"K") {
        for (int at = column; at < columns; ++at)
            (*grid)[row][at] = {};
    } else if (sequence == u"2J") {
        *grid = Grid(rows, QList<Cell>(columns));
    } else if (sequence == u"?1049h") {
        grid = &alternate;
        alternate = Grid(rows, QList<Cell>(columns));
    } else if (sequence == u"?1049l") {
        grid = &usual;
    } else if (sequence == u"?25h" || sequence == u"?25l") {
        cursorShown = kind == u'h';
    } else if (sequence == u"?7h" || sequence == u"?7l") {
        wraps = kind == u'h';
    } else {
        unknownSequences.append(sequence);
    }
}
