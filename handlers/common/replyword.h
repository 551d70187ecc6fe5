#pragma once

#include <QString>

/// A code or a state from a reply, as a reason for people shows it: its first 40 characters, and
/// "не указано" for an empty one. A reply may hold anything in its place, up to megabytes, and a
/// reason is kept.
QString shownWord(const QString &word);
