#pragma once

#include <QDir>
#include <QList>
#include <QString>

/// The real place of an absolute path of the till: `path` itself, or `path` below the folder in the
/// environment variable QUEUE_ROOT. Tests and developers set that variable to work without root; a
/// till never does. Every fixed path of the service goes through this function. Thread: any.
QString rootedPath(const QString &path);

/// The folders of the till's settings, in the order in which they are read.
QList<QDir> settingsFolders();

/// The file with the fail ids, a JSON object by type.
QString startIdsFile();

/// The SQLite file with the outcome of each message.
QString journalFile();

/// The file that the service locks while it runs. A program that replaces the database locks it as
/// well.
QString serviceLockFile();
