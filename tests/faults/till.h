#pragma once

#include "rig/messagetable.h"
#include "rig/serviceprocess.h"
#include "rig/till.h"

#include <QJsonObject>
#include <QList>
#include <QMap>

namespace faults {

/// A till with the real service, which polls each second and logs at debug level. A failed set-up
/// ends the test with a message. Thread: the one that made it, whose event loop must run.
class Till
{
public:
    /// `settings` are further sections of the service's settings, `environment` further variables.
    explicit Till(const QString &settings = QString(),
                  const QMap<QString, QString> &environment = {});

    /// Returns when the control interface answers.
    void start();
    rig::ServiceProcess &service() { return process; }
    /// A file below the till's folder.
    QString path(const QString &name) const { return place.path(u'/' + name); }
    int controlPort() const { return place.controlPort(); }

    int put(const QString &type, const QJsonObject &body, const QString &cardNumber = QString());
    /// The ids of the rows that are left.
    QList<int> ids();
    bool isIn(int id) { return ids().contains(id); }
    void remove(int id) { table.remove(id); }
    /// False when the row is not deleted within the time limit of rig::waitUntil().
    bool waitUntilRemoved(int id);
    /// Waits until at least this number of workers of the type has ended since the start.
    bool waitForEnds(const QString &type, int count);

    /// The log texts of one category, in their order.
    QStringList lines(const QString &category) const;
    /// How long the exchanges of a type took, in milliseconds.
    QList<int> exchangeTimes(const QString &type) const;

    /// A request to the control interface over a connection of its own; the body of the answer.
    QByteArray ask(const QByteArray &target) const;

    /// The highest resident memory of the service since its start, in KiB.
    qint64 peakMemory() const { return process.use().peakMemory(); }
    qint64 memory() const { return process.use().memory(); }
    /// Processor time of all threads of the service.
    double processorSeconds() const;

private:
    rig::Till place;
    rig::MessageTable table;
    rig::ServiceProcess process;
};

/// The memory limit is for the release build: a sanitizer needs several times as much.
constexpr bool isMemoryJudged()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

/// The limit of resident memory of the service, in KiB.
constexpr qint64 memoryLimit = 64 * 1024;

} // namespace faults
