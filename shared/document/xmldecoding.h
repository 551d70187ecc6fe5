#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace xmlutils {

/// The text of a document, in the encoding that its first bytes or its declaration tell, else in
/// UTF-8; nothing when the bytes are not of that encoding, or it is unknown. Qt's own parser knows
/// the Unicode encodings alone, and services answer in windows-1251 as well.
std::optional<QString> decodeXml(const QByteArray &bytes);

} // namespace xmlutils
