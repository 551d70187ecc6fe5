#pragma once

#include <QString>

namespace queuectl {

/// The exit codes of a monitoring plugin, which differ from those of the other commands.
enum class CheckState
{
    Ok = 0,
    Warning = 1,
    Critical = 2,
    Unknown = 3,
};

/// The line of a plugin: the state and a sentence, in one line whatever the sentence holds. A bar
/// would begin the performance data, which follow when there are any.
QString checkLine(CheckState state, const QString &sentence, const QString &performance = {});

} // namespace queuectl
