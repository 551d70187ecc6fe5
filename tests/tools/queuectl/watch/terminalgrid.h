#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// What a terminal of this size shows after the bytes of a program, as far as `queuectl` uses one:
/// letters of one column, line feeds, the cursor's place, clearing, tones, the alternate screen,
/// the cursor and the right edge. Any other escape sequence is kept in unknown().
class TerminalGrid
{
public:
    TerminalGrid(int columns, int rows);

    void write(const QByteArray &bytes);
    /// Each without the blanks at its end.
    QStringList lines() const;
    /// Those of the screen that is shown.
    QString text() const { return lines().join(u'\n'); }
    /// The parameters of the tone of the letter, as in "31"; empty for a plain one.
    QString toneAt(int row, int column) const { return (*grid)[row][column].tone; }
    QStringList unknown() const { return unknownSequences; }
    bool isAlternate() const { return grid == &alternate; }
    bool isCursorShown() const { return cursorShown; }
    bool isWrapping() const { return wraps; }

private:
    struct Cell
    {
        QString letter = QStringLiteral(" ");
        QString tone;
        bool operator==(const Cell &) const = default;
    };
    using Grid = QList<QList<Cell>>;

    void put(const QString &letter);
    void lineFeed();
    void control(const QString &parameters, QChar kind);

    int columns;
    int rows;
    Grid usual;
    Grid alternate;
    Grid *grid = &usual;
    int row = 0;
    int column = 0;
    QString tone;
    bool cursorShown = true;
    bool wraps = true;
    QByteArray rest;
    QStringList unknownSequences;
};
