#pragma once

#include <QByteArrayView>

#include <chrono>
#include <optional>

namespace http {

/// The time that a header such as `Date: Sun, 06 Nov 1994 08:49:37 GMT` names; nothing when it has
/// another form or names no time. The name of the day is not compared with the date.
std::optional<std::chrono::sys_seconds> parseDate(QByteArrayView text);

} // namespace http
