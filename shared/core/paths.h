#pragma once

#include <QDir>
#include <QList>
#include <QString>

/// Where an absolute path of the till lies for this process: `path` itself, or below the folder
/// that the environment variable QUEUE_ROOT names. Tests and a developer's desk set that variable
/// and need no root; a till never does. Every fixed path of the service goes through here. Thread:
/// any.
QString rootedPath(const QString &path);

/// The folders with the settings of the till, in the order in which they are read.
QList<QDir> settingsFolders();

/// The file in which the service keeps its fail ids, a JSON object by type.
QString startIdsFile();

/// The SQLite file in which the service keeps what became of each message.
QString journalFile();

/// The file that a process locks while it works on the service's folder: the service, and a program
/// that replaces the database.
QString serviceLockFile();
