#pragma once

#include "rig/childprocess.h"
#include "rig/servicelog.h"

#include <QJsonObject>
#include <QMap>
#include <QString>

namespace rig {

class Till;

/// The program `queue` on a till. Thread: the one that made it.
class ServiceProcess : public ChildProcess
{
public:
    enum class Log
    {
        /// Parsed on arrival, at level debug. The event loop must run: otherwise the pipe fills up
        /// and the service blocks.
        Records,
        /// Appended to logFile(), with the till's log settings.
        File
    };

    /// The environment is this process's, without variables that redirect the service, overridden
    /// by `environment`. Throws Error when the till's folder cannot be written.
    ServiceProcess(const QString &program, const Till &till,
                   const QMap<QString, QString> &environment = {}, Log log = Log::Records);

    void start() override;
    /// How it ended; empty for exit code 0.
    QString endFault() const;
    /// The answer of the control interface; empty without one.
    QJsonObject ask(const QString &path,
                    std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
    quint16 controlPort() const { return port; }

    // With Log::Records: everything since the first start.

    const ServiceLog &log() const { return log_; }
    /// The output on standard error; should be empty.
    QString errors() const;

    // With Log::File.

    QString logFile() const { return logFile_; }
    /// Everything written to the file so far.
    QByteArray output() const;

private:
    ServiceLog log_;
    QByteArray errorBytes;
    QString logFile_;
    quint16 port = 0;
};

} // namespace rig
