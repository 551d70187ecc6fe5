#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// Leaves the last processor to programs that ask for it; while it lives, this process runs on the others.
/// By itself the scheduler puts a program and the receiver that it wakes on one processor or on two, now so
/// and now so, and a message takes up to a fifth more or less for it. On a machine with one processor there
/// is nothing to leave.
/// Thread: any; one object at a time.
class ProcessorLeft
{
public:
    ProcessorLeft();
    ~ProcessorLeft();
    ProcessorLeft(const ProcessorLeft &) = delete;
    ProcessorLeft &operator=(const ProcessorLeft &) = delete;
};

/// A program under measurement: the service, or a bare loop. Asked to end by the destructor.
class Process
{
public:
    enum class Place
    {
        AnyProcessor,
        LastProcessor
    };

    /// Its output goes to the file `log`. `environment` holds entries "NAME=value".
    Process(const QString &program, const QStringList &arguments, const QString &log,
            const QStringList &environment = {}, Place place = Place::AnyProcessor);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Processor time so far, all threads, in microseconds.
    double processorMicroseconds() const;
    double residentMb() const;
    /// True when it ended with 0 in time, after SIGTERM.
    bool end();
    bool isRunning();

private:
    QProcess process;
};
