#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// A program under measurement: the service, or a bare loop. Asked to end by the destructor.
class Process
{
public:
    /// Its output goes to the file `log`. `environment` holds entries "NAME=value".
    Process(const QString &program, const QStringList &arguments, const QString &log,
            const QStringList &environment = {});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Processor time so far, all threads, in microseconds.
    double processorMicroseconds() const;
    double residentMb() const;
    /// True when it ended with 0 in time, after SIGTERM.
    bool end();

private:
    QProcess process;
};
