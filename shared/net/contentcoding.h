#pragma once

#include <QByteArray>

namespace http {

enum class Unpacking
{
    Done,
    /// An unknown coding, or bytes that are not in the coding that the header names.
    Unknown,
    /// The data is in that coding but truncated.
    CutOff,
    TooLarge,
};

/// Decodes `body`, or leaves it unchanged on failure. `codings` are the comma-joined values of
/// `Content-Encoding`, in the order of their application. Supported are gzip and deflate, the
/// latter with and without the zlib header. Each decoding may produce at most `maxSize` bytes. For
/// a large body, peak memory is little more than the larger of its two forms.
Unpacking unpack(QByteArray &body, const QByteArray &codings, qsizetype maxSize);

} // namespace http
