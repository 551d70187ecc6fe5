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

/// Reads what the service writes to standard output at level debug.
class ServiceLog
{
public:
    /// Bytes in the order of their arrival, in any portions.
    void take(const QByteArray &bytes);
    /// The counts of workers begin again; the records stay.
    void beginRun();

    const QList<LogRecord> &records() const { return all; }
    /// All records as text, for a report.
    QString text() const;

    /// Since beginRun(): how often workers of the type were started, how often they ended, and how
    /// often the type was found to be unknown.
    int starts(const QString &type) const { return started.value(type); }
    int ends(const QString &type) const { return ended.value(type); }
    int refusals(const QString &type) const { return refused.value(type); }
    /// Every worker that was started has ended.
    bool isIdle() const;

    /// Whether the line is an event of the logging library's own, which no test is about.
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
