#pragma once

#include <QByteArray>

namespace http {

/// Whether the text is a word as HTTP allows it for verbs and header names.
bool isToken(const QByteArray &text);

/// The text with blanks for line breaks, which would begin a header of their own.
QByteArray oneLine(QByteArray text);

} // namespace http
