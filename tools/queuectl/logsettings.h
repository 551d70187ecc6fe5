#pragma once

#include <QString>
#include <QStringList>

namespace queuectl {

/// The settings of the service's log, whether the file is there or not.
QString logSettingsFile();

/// The log file that these settings name for all categories; empty when the log goes to standard
/// output alone, or the settings cannot be read.
QString logFile();

/// Why the service does not take these settings, as it tries them itself: empty when it does. No
/// log file is opened for it.
QStringList refusalsOfLogSettings(const QString &path);

/// The log files of these settings that lie where the unit does not let the service write.
QStringList logFilesOutOfReach(const QString &path);

} // namespace queuectl
