#pragma once

#include <QString>

namespace queuectl {

/// The style sheet of a page. Its colours are named once for a light and once for a dark screen;
/// each has a contrast of 4.5:1 or more with both grounds, lines of a grid excepted. It names no
/// resource, and has no character that HTML and XML write in different ways within `style`.
QString pageStyle();

} // namespace queuectl
