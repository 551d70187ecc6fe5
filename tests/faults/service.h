#pragma once

#include "rig/portreservation.h"

#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

namespace faults {

/// The real service as a process of its own, by default in the folder that QUEUE_ROOT names. Dies with the test.
/// Thread: the one that made it.
class Service
{
public:
    /// `logPath`: where its output goes, one run after the other. `root`: its folder, if it is not that
    /// of QUEUE_ROOT.
    explicit Service(const QString &logPath, const QString &root = QString());
    ~Service();
    Service(const Service &) = delete;

    /// From the next start on the rights of files hold for the service also where root runs the test.
    void obeyFileRights() { obeysFileRights = true; }
    /// A variable of its environment from the next start on.
    void setVariable(const QString &name, const QString &value);
    void start();
    bool isRunning();
    /// SIGKILL, and the process is gone when this returns.
    void kill();
    /// SIGTERM. False when it did not end in good order within `limitMs`.
    bool stop(int limitMs = 60'000);
    /// False when it did not end by itself within `limitMs`.
    bool waitForEnd(int limitMs = 60'000);
    /// Sends it a signal.
    void signal(int number) const;
    /// How the process that is no longer running has ended: "exit 1" or "signal".
    QString end() const;
    qint64 processId() const { return process.processId(); }

    /// The control interface's answer; empty when it gave none.
    QJsonObject ask(const QString &path, int limitMs = 10'000) const;
    /// Everything written since the first start.
    QByteArray log() const;

    /// The port that its settings must name. Nobody else is given it, also while the service is down.
    int controlPort() const { return port.port(); }

private:
    QProcess process;
    QString logPath;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    rig::PortReservation port;
    bool obeysFileRights = false;
};

} // namespace faults
