#pragma once

#include "engine/dao.h"
#include "engine/handlerfactory.h"
#include "engine/sharedstate.h"

#include <QList>
#include <QMutex>
#include <QString>

#include <memory>
#include <span>

namespace Log4Qt {
class Logger;
}

/// Decides which workers run: each poll starts one for every type that has rows and no live worker.
/// Keeps the fail ids in a file, so that a restart does not begin again at the refused messages.
///
/// Thread: the main thread. Workers use only the shared state. Lock order: startLock, then the
/// mutex of the running types. The mutex of the fail ids is never held together with another one.
class QueueHandler
{
public:
    enum StartResult
    {
        NotStarted = 0,
        Started = 1,
        AlreadyRunning = 2,
    };

    QueueHandler(std::span<const HandlerRow> handlers, std::shared_ptr<SharedState> state);
    /// Does not wait for workers.
    virtual ~QueueHandler();
    QueueHandler(const QueueHandler &) = delete;
    QueueHandler &operator=(const QueueHandler &) = delete;

    /// Starts a worker for the whole type; the card is only stored in the worker. Returns without a
    /// start unless this service is active.
    virtual int startHandler(const QString &type, const QString &cardNumber);
    /// Logs and returns the types that have rows.
    virtual QList<TypeCount> getStatus();
    /// Saves the fail ids if 120 seconds have passed since the last save, or if the last one was
    /// skipped.
    virtual void saveStartIdsIfDue();
    /// Waits at most one second for the mutex of the fail ids, which workers hold while they read.
    virtual void saveStartIds();
    virtual void loadStartIds();

    /// Connects to the database and loads the fail ids. Call once. Throws BasicException when the
    /// database cannot be reached.
    void init();
    /// One poll, unless this service is a stand-by.
    void startHandlers();

    bool hasMessages(const QString &type, const QString &cardNumber);
    QueueInfo getQueueInfo();
    /// Errors of the main thread's store; workers count their own.
    int getErrorsCount() const;
    void resetErrorsCount();

private:
    /// False when the type has a worker already. Check and insertion are one step: two starts at
    /// the same time never make two workers of one type, which would deliver a row twice.
    bool enterType(const QString &type);
    void withdrawType(const QString &type);

    std::unique_ptr<HandlerFactory> factory;
    std::unique_ptr<queue::DAO> dao;
    std::shared_ptr<SharedState> state;
    QMutex startLock;
    qint64 lastSaveTime = 0;
    Log4Qt::Logger *logger;
};
