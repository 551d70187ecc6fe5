#pragma once

#include <QString>

namespace rig {
struct Traffic;
}

namespace stand {

/// The operator's language: Russian on a till, English elsewhere.
QString say(const QString &russian, const QString &english);

/// A line on standard output, at once.
void print(const QString &text);

/// Green or red on a terminal, unless NO_COLOR is set.
QString coloured(const QString &text, bool isGood);

/// Headers and body of the request (>), and of the answer (<) where there was one, indented; empty
/// when there is nothing to show. Long bodies are cut.
QString quoted(const rig::Traffic &traffic);

} // namespace stand
