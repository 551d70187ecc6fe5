#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// The test's program started again, as another program that uses the database.
namespace anotherprogram {

/// Opens the database of the settings as the service does, and writes "rows: 3", or why it is not
/// read.
inline const QString count = QStringLiteral("--count");
/// The same where no database driver is installed.
inline const QString countWithoutDrivers = QStringLiteral("--count-without-drivers");
/// Opens the file of the next argument as a till does, writes "open", and closes it when its input
/// ends.
inline const QString hold = QStringLiteral("--hold");

/// Runs what the first argument asks for, and returns the exit code; nothing for a test's own
/// arguments.
std::optional<int> run(const QStringList &arguments);

} // namespace anotherprogram
