#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace xmlutils {

/// Decodes a document by its byte order mark or declaration, otherwise as UTF-8. Nothing if the
/// bytes are invalid in that encoding, or the encoding is unknown. Qt's parser supports only
/// Unicode encodings, but some services answer in windows-1251.
std::optional<QString> decodeXml(const QByteArray &bytes);

} // namespace xmlutils
