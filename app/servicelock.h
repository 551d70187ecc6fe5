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

/// Elects one active service among all that use one schema on a database server, possibly from
/// several machines. The service that holds the server's lock delivers, the others wait as
/// stand-bys. The lock belongs to a connection of its own. A separate thread checks it each second,
/// so that a silent server delays neither polls nor commands. With SQLite there is no election and
/// no thread.
///
/// SharedState::role follows the lock; no delivery begins without it.
/// Thread: the main thread, except roleChanged().
class ServiceLock : public QObject
{
    Q_OBJECT

public:
    ServiceLock();
    /// Releases the lock, so that a stand-by can take over. Call after the last delivery has ended.
    ~ServiceLock() override;

    /// Returns when the role is known, or after 15 seconds without an answer. Call once, before the
    /// other operations.
    void start(const std::shared_ptr<SharedState> &state);
    ServiceRole role() const { return state->role; }
    /// Whether several services compete for the lock: true on a database server.
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
    /// Tries to take the lock when it is this service's turn.
    void tryToAcquire();
    void take();
    bool isHeld();
    bool isFree();
    bool isFormerConnection(const QString &holder) const;
    QString holder();
    QString description(const QString &holder);
    /// Runs the statement and returns the first value of the first row. Throws BasicException when
    /// the server does not answer.
    QVariant ask(const QString &statement);
    void setRole(ServiceRole role);
    void lose(const QString &reason);
    void workWithoutLock(const QString &reason);

    std::shared_ptr<SharedState> state;
    Log4Qt::Logger *logger;
    std::mutex mutex;
    std::condition_variable_any changed;

    // Used only by the lock's own thread.
    QString schema;
    QString name;
    bool isConnected = false;
    bool isSupported = true;
    /// True if this service need not let others try first: it has just started, or held the lock
    /// last.
    bool hasPrecedence = true;
    bool hadLock = false;
    bool isOutageLogged = false;
    /// The connection that held the lock, and the time of its loss: the server may consider the
    /// connection alive for a while.
    QString lockConnection;
    Clock::time_point lostAt;
    std::optional<Clock::time_point> freeSince;

    /// Last, so that it ends first.
    std::jthread thread;
};
