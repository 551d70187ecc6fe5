#pragma once

#include <QByteArray>

namespace http {

/// Whether the text is a token by HTTP's grammar, as verbs and header names are.
bool isToken(const QByteArray &text);

/// The text with line breaks replaced by blanks; a line break would begin another header.
QByteArray oneLine(QByteArray text);

} // namespace http
