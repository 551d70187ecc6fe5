#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

namespace rig {

/// One event of the service's log.
struct LogRecord
{
    /// `INFO`, `WARN` and so on.
    QString level;
    QString category;
    QString text;

    /// `WARN [queue] text`.
    QString line() const;
};

/// Parses the service's standard output at level debug.
class ServiceLog
{
public:
    /// Bytes in the order of their arrival, in any portions.
    void take(const QByteArray &bytes);
    /// Resets the counts of workers; the records stay.
    void beginRun();

    const QList<LogRecord> &records() const { return all; }
    /// All records as text, for a report.
    QString text() const;

    /// Since beginRun(): the number of workers of the type that were started, of those that ended,
    /// and of log lines saying that the type is unknown.
    int starts(const QString &type) const { return started.value(type); }
    int ends(const QString &type) const { return ended.value(type); }
    int refusals(const QString &type) const { return refused.value(type); }
    /// Every started worker has ended.
    bool isIdle() const;

    /// Whether the line is an event of the logging library itself, which tests ignore.
    static bool isOfTheLibrary(const QByteArray &line);

private:
    void takeLine(const QByteArray &line);
    void count(const LogRecord &record);

    QByteArray rest;
    QList<LogRecord> all;
    QHash<QString, int> started;
    QHash<QString, int> ended;
    QHash<QString, int> refused;
};

} // namespace rig
