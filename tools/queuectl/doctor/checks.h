#pragma once

#include "tools/queuectl/check.h"

#include <QDateTime>
#include <QList>

class QSqlDatabase;

/// What `queuectl doctor` looks at, one function for each area, one file for each or for two that
/// belong together. None of them throws or writes anything.
namespace queuectl {

/// A certificate that ends within this time is worth a warning.
constexpr qint64 soonDays = 30;
/// So is a write-ahead log above this size.
constexpr qint64 largeLogBytes = 64LL * 1024 * 1024;

/// The settings files: settingscheck.cpp.
QList<Check> examineSettings();

struct DatabaseChecks
{
    QList<Check> checks;
    /// When the newest row was written; invalid without a row, or without a database.
    QDateTime newestRow;
};

/// Driver, connection, and the file or the account on the server: databasecheck.cpp.
DatabaseChecks examineDatabase();
/// Tables, columns, indexes and collations: schemacheck.cpp.
QList<Check> examineSchema(const QSqlDatabase &connection);

/// Folders and files of the queue, their owners, and the room on the disk: rightscheck.cpp.
QList<Check> examineRights();

/// The tool that converts certificates: machinecheck.cpp.
QList<Check> examineOpenssl();
/// The clock, against the times that rows and fail ids bear: machinecheck.cpp.
QList<Check> examineClock(const QDateTime &newestRow);

/// The control port: servicecheck.cpp.
QList<Check> examinePort();
/// The log and its settings: servicecheck.cpp.
QList<Check> examineLog();

/// Certificates that settings and waiting rows name, and those that the service has converted,
/// whether each can be read, and until when it holds: certificatecheck.cpp.
QList<Check> examineCertificates();

/// The rows that wait: queuecheck.cpp.
QList<Check> examineRows();

} // namespace queuectl
