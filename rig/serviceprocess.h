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
        /// Read as it comes, at level debug. The event loop must run, or the service waits with its
        /// log.
        Records,
        /// Goes to logFile(), one run after the other, as the till's own settings have it.
        File
    };

    /// The environment is ours without what would lead the service elsewhere, and `environment` put
    /// over it. Throws Error when the till's folder cannot be written.
    ServiceProcess(const QString &program, const Till &till,
                   const QMap<QString, QString> &environment = {}, Log log = Log::Records);

    void start() override;
    /// How it ended: empty for exit code 0.
    QString endFault() const;
    /// The answer of the control interface; empty when it gave none.
    QJsonObject ask(const QString &path,
                    std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
    quint16 controlPort() const { return port; }

    // With Log::Records, everything since the first start.

    const ServiceLog &log() const { return log_; }
    /// What came on standard error; there should be nothing.
    QString errors() const;

    // With Log::File.

    QString logFile() const { return logFile_; }
    /// Everything written there so far.
    QByteArray output() const;

private:
    ServiceLog log_;
    QByteArray errorBytes;
    QString logFile_;
    quint16 port = 0;
};

} // namespace rig
