#pragma once

#include "tools/queuectl/report.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace queuectl {

/// A piece of a line.
struct Span
{
    QString text;
    Tone tone = Tone::Plain;
};

using ScreenLine = QList<Span>;

/// What a terminal of this size shows, from the top. Lines that are too long or too many are cut
/// when they are drawn.
struct Screen
{
    int columns = 0;
    int rows = 0;
    QList<ScreenLine> lines;
};

/// How many columns of a terminal the text takes. A letter of East Asia takes two; characters that
/// take none are not drawn, and those whose width is unknown are drawn as a question mark.
int displayWidth(const QString &text);
/// `text` in exactly `width` columns: cut with an ellipsis, or filled with blanks. Control and
/// invisible characters appear by their numbers.
QString fitted(const QString &text, int width, bool isRight = false);
/// `text` cut in the same way where it takes more than `width` columns, and not filled.
QString cutToWidth(const QString &text, int width);

/// The screen as lines of plain text, for a terminal that goes on after them.
QString screenText(const Screen &screen);

/// The bytes that make `now` of a terminal that shows `before` and has taken all bytes for it: only
/// what differs is written, or everything when the size differs. No control character of a text is
/// among them.
QByteArray screenUpdate(const Screen &before, const Screen &now, bool withColours);

} // namespace queuectl
