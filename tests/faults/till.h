#pragma once

#include "rig/messagetable.h"
#include "rig/serviceprocess.h"
#include "rig/till.h"

#include <QJsonObject>
#include <QList>
#include <QMap>

namespace faults {

/// A till with the real service on it, which polls each second and tells everything at debug level.
/// What cannot be set up ends the test with a message.
/// Thread: the one that made it, whose event loop must run.
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
    /// False when the row does not go within the patience of rig::waitUntil().
    bool waitUntilRemoved(int id);
    /// Until at least that many workers of the type have ended since the start.
    bool waitForEnds(const QString &type, int count);

    /// The texts of one category, in their order.
    QStringList lines(const QString &category) const;
    /// How long the exchanges of a type took, in milliseconds.
    QList<int> exchangeTimes(const QString &type) const;

    /// A request to the control interface over a connection of its own; the body of the answer.
    QByteArray ask(const QByteArray &target) const;

    /// The most memory that the service has had resident since its start, in KiB.
    qint64 peakMemory() const { return process.use().peakMemory(); }
    qint64 memory() const { return process.use().memory(); }
    /// Processor time that the service has taken, of all its threads.
    double processorSeconds() const;

private:
    rig::Till place;
    rig::MessageTable table;
    rig::ServiceProcess process;
};

/// The promise of memory is for the program as it is delivered: a sanitizer's own bookkeeping takes
/// many times as much.
constexpr bool isMemoryJudged()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

/// The most that the service may have resident, in KiB.
constexpr qint64 memoryLimit = 64 * 1024;

} // namespace faults
