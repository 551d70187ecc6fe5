#pragma once

#include <QStringList>

namespace queuectl {

/// Carries one command line out, the program's name left out, and returns what the process ends
/// with. Settings are read from the till's folders.
int run(const QStringList &commandLine);

/// The help of the program, or of one command.
QString helpText(const QString &command = QString());

} // namespace queuectl
