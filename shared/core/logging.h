#pragma once

/// Sets UTF-8 as the encoding of the process and its children, whatever the locale: log lines and
/// file names are UTF-8 everywhere. Call first in main(): newer versions of Qt print a notice when
/// they start in another locale.
void useUtf8Locale();

/// Configures the log. Call once, after the QCoreApplication was built and before the first log
/// line.
///
/// Reads log4j properties from the file in the environment variable LOG4QT_CONFIGURATION, or else
/// from `/tallocash/cash/queue/config/log4qt.properties` if it exists. A file that cannot be read
/// or has a mistake gives one warning. Without a valid file, everything from level info up goes to
/// standard output, as in `2026-01-31 12:00:00,123 INFO  [cardlab] text`.
void setUpLogging();
