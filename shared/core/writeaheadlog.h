#pragma once

#include <QSqlQuery>

/// Copies the write-ahead log into the database file and syncs it while the till goes on reading
/// and writing. The log is not truncated: truncating one that still has content would block the
/// till's writes during the copy. False when frames remain.
bool copyWriteAheadLog(QSqlQuery &query);
