#pragma once

#include <QByteArray>
#include <QString>

namespace queuectl {

/// The width of a terminal that does not tell it.
constexpr int usualColumns = 80;

/// Whether standard output takes colours: it is a terminal that has them, and NO_COLOR is not set.
bool hasColours();
/// Whether standard output is a terminal whose cursor can be placed.
bool canPlaceCursor();
/// The same by the name of the terminal's type, which the variable TERM has.
bool knowsColours(const QByteArray &terminalType);
bool placesCursor(const QByteArray &terminalType);
/// Whether standard output is a terminal.
bool isTerminal();

/// Writes to standard output. Throws Failure when it does not take everything, as a full disk.
void print(const QString &text);
void print(const QByteArray &bytes);
/// Writes a line to standard error.
void printError(const QString &text);

/// Asks on the terminal; the question is escaped. Without a terminal to answer from, or with any
/// answer but yes, throws Failure (NotConfirmed).
void confirm(const QString &question);

} // namespace queuectl
