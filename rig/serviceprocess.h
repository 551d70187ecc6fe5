#pragma once

#include <QHash>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

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

/// The program `queue`, started below a folder of its own with its log on standard output. It dies
/// with the test. Thread: the one that made it, whose event loop must run.
class ServiceProcess
{
public:
    /// `root` becomes QUEUE_ROOT. The environment is ours with `environment` put over it.
    ServiceProcess(const QString &program, const QString &root,
                   const QMap<QString, QString> &environment);
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess &) = delete;

    void start();
    void terminate();
    void kill();
    bool isRunning() const;
    /// 0 while it does not run.
    qint64 processId() const;
    /// The process has ended, and everything that it wrote is here.
    bool hasEnded() const;
    /// How it ended: empty for exit code 0.
    QString endFault() const;

    /// Everything since the first start.
    const QList<LogRecord> &log() const;
    /// The log as text, for a report.
    QString logText() const;
    /// What came on standard error since the first start; there should be nothing.
    QString errors() const;

    /// Since the latest start: how often workers of the type were set going, how often they ended,
    /// and how often the type was found to be unknown.
    int starts(const QString &type) const;
    int ends(const QString &type) const;
    int refusals(const QString &type) const;
    /// No worker that was set going is still at work.
    bool isIdle() const;

private:
    void read();
    void take(const QByteArray &line);

    QProcess process;
    QByteArray rest;
    QList<LogRecord> records;
    QByteArray errorBytes;
    bool wasStarted = false;
    QHash<QString, int> started;
    QHash<QString, int> ended;
    QHash<QString, int> refused;
};

} // namespace rig
