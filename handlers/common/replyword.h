#pragma once

#include <QString>

/// A code or state from a reply, for use in a reason: its first 40 characters, or "не указано" if
/// empty. A reply may contain megabytes in its place, and reasons are stored.
QString shownWord(const QString &word);
