#pragma once

#include <QByteArray>

namespace http {

enum class Unpacking
{
    Done,
    /// A coding that is not known here, or bytes that are not packed as the header says.
    Unknown,
    /// It is packed as the header says, and ends too early.
    CutOff,
    TooLarge,
};

/// Takes `body` out of `codings`, the comma-joined values of `Content-Encoding` in the order in
/// which they were applied, or leaves it as it is. gzip and deflate are known, the latter with and
/// without the wrapping of zlib. Each of the codings may unpack to `maxSize` bytes. Of a large body
/// hardly more is in memory than the larger of both forms.
Unpacking unpack(QByteArray &body, const QByteArray &codings, qsizetype maxSize);

} // namespace http
