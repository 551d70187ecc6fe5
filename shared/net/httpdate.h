#pragma once

#include <QByteArrayView>

#include <chrono>
#include <optional>

namespace http {

/// The time in a header such as `Date: Sun, 06 Nov 1994 08:49:37 GMT`; nothing for another format
/// or an impossible time. The day's name is not checked against the date.
std::optional<std::chrono::sys_seconds> parseDate(QByteArrayView text);

} // namespace http
