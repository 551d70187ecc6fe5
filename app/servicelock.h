#pragma once

#include "engine/sharedstate.h"

#include <QObject>
#include <QSqlDatabase>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace Log4Qt {
class Logger;
}

/// One service for a schema on a database server, which services on several machines can name: the
/// one that has the server's lock delivers, the others wait as stand-bys. The lock belongs to a
/// connection of its own, which a thread of its own asks each second, since a server that has gone
/// silent may hold up neither polls nor commands. With SQLite there is nothing to agree on, and no
/// thread.
///
/// SharedState::role follows the lock, and no delivery begins while it is not held.
/// Thread: the main thread, roleChanged() excepted.
class ServiceLock : public QObject
{
    Q_OBJECT

public:
    ServiceLock();
    /// Gives the lock back, and with it the queue to a stand-by: call when the last delivery has
    /// ended.
    ~ServiceLock() override;

    /// Returns when the role is known, or after a while without an answer. To be called once,
    /// before the other operations.
    void start(const std::shared_ptr<SharedState> &state);
    ServiceRole role() const { return state->role; }
    /// Whether other services may have the lock.
    bool isShared() const { return thread.joinable(); }

Q_SIGNALS:
    /// Thread: the lock's own.
    void roleChanged();

private:
    using Clock = std::chrono::steady_clock;

    void run(const std::stop_token &stop);
    void step();
    void openConnection();
    void closeConnection();
    /// Goes for the lock, as its turn is.
    void approach();
    void take();
    bool isHeld();
    bool isFree();
    bool isFormerConnection(const QString &holder) const;
    QString holder();
    QString description(const QString &holder);
    /// The first value of the first row. Throws BasicException when the server does not answer.
    QVariant ask(const QString &statement);
    void setRole(ServiceRole role);
    void lose(const QString &reason);
    void workWithoutLock(const QString &reason);

    std::shared_ptr<SharedState> state;
    Log4Qt::Logger *logger;
    std::mutex mutex;
    std::condition_variable_any changed;

    // Touched by the lock's own thread alone.
    QString schema;
    QString name;
    bool isConnected = false;
    bool isSupported = true;
    /// This service need not give others the first chance: it has just started, or had the lock
    /// last.
    bool hasPrecedence = true;
    bool hadLock = false;
    bool isOutageTold = false;
    /// The connection that had the lock, and when it was lost: the server may take it for alive a
    /// while.
    QString lockConnection;
    Clock::time_point lostAt;
    std::optional<Clock::time_point> freeSince;

    /// Last, so that it ends first.
    std::jthread thread;
};
