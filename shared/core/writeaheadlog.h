#pragma once

#include <QSqlQuery>

/// Brings the write-ahead log into the file and to the disk while the till goes on reading and
/// writing. Emptying a log that holds something still would keep the till from writing for all
/// that time. False when something is left.
bool copyWriteAheadLog(QSqlQuery &query);
