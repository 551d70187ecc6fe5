#pragma once

#include "tests/support/queuedatabase.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/// What one call of the program came to.
struct CommandResult
{
    int exitCode = -1;
    QString out;
    QString err;

    /// What was printed, which must be one JSON object and nothing else.
    QJsonObject json() const;
};

/// A till's files in a temporary folder, and the program `queuectl` to look at them.
/// The control port of the settings is one that nobody listens on, unless the test starts the
/// service.
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
    /// `text` in place of the settings, the port put in front.
    void setSettings(const QString &text);
    /// The path of a new file below the root; `path` is a till's.
    QString write(const QString &path, const QByteArray &content);
    /// Has the service's log go to a file, and writes these lines into it.
    void setLog(const QStringList &lines);
    void setFailIds(const QByteArray &json);
    /// Makes the time of a row so many seconds ago.
    void setAge(int id, int seconds);
};

/// A line of the log as the service writes it, so many seconds ago.
QString logLine(int secondsAgo, const QString &level, const QString &category, const QString &text);
