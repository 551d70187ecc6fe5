#pragma once

#include "tests/support/queuedatabase.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/// The result of one call of the program.
struct CommandResult
{
    int exitCode = -1;
    QString out;
    QString err;

    /// The output, which must be exactly one JSON object.
    QJsonObject json() const;
};

/// A till's files in a temporary folder, and the program `queuectl`. The control port of the
/// settings is closed unless the test starts the service.
class Till
{
public:
    Till();

    QueueDatabase database;

    /// What the program sees: English, a terminal with colours, and `changes`.
    static QProcessEnvironment environment(const QMap<QString, QString> &changes = {});
    /// Runs the program to its end, in English unless `environment` says otherwise.
    CommandResult run(const QStringList &arguments, const QByteArray &input = {},
                      const QMap<QString, QString> &environment = {});
    /// The same with a terminal for all three of its channels, on which `input` is typed.
    CommandResult runOnTerminal(const QStringList &arguments, const QByteArray &input = {},
                                const QMap<QString, QString> &environment = {});

    /// Files that the account may not read are closed to the program for root too.
    bool obeysFileRights = false;

    quint16 port() const { return database.till().controlPort(); }
    /// Replaces the settings with `text`, after the port.
    void setSettings(const QString &text);
    /// The path of a new file below the root; `path` is a till's.
    QString write(const QString &path, const QByteArray &content);
    /// Configures a log file for the service, and writes these lines into it.
    void setLog(const QStringList &lines);
    void setFailIds(const QByteArray &json);
    /// Sets the time of a row to this many seconds ago.
    void setAge(int id, int seconds);
};

/// A line of the log as the service writes it, with a time this many seconds ago.
QString logLine(int secondsAgo, const QString &level, const QString &category, const QString &text);
