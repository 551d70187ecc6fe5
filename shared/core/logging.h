#pragma once

/// Makes UTF-8 the encoding of the process and of those it starts, whatever locale it was given:
/// log lines and file names are UTF-8 everywhere. Call first of all in main(); newer versions of Qt
/// write a notice for each start in another locale.
void useUtf8Locale();

/// Sets up where log lines go. Call once, after the QCoreApplication was built and before anything
/// logs.
///
/// The file that the environment variable LOG4QT_CONFIGURATION names, or else
/// `/tallocash/cash/queue/config/log4qt.properties` where it exists, is read as log4j properties.
/// Without one, and after one warning when it cannot be read or has a mistake: everything from info
/// up to standard output, as in `2026-01-31 12:00:00,123 INFO  [cardlab] text`.
void setUpLogging();
