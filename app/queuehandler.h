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

/// Decides which workers run: at each poll one for every type that has rows and no live worker.
/// Keeps the fail ids in a file, so that a restart does not begin again at the refused messages.
///
/// Thread: the main thread. Workers touch nothing of it but the shared state. Locks: startLock is
/// taken first, then the mutex of the running types; the mutex of the fail ids stands alone.
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

    /// Starts a worker for the whole type; the card is a note for it. Only the active service
    /// starts one.
    virtual int startHandler(const QString &type, const QString &cardNumber);
    /// The types that have rows, as the log now shows them.
    virtual QList<TypeCount> getStatus();
    /// Saves the fail ids when the last time was 120 seconds ago or more, or did not succeed.
    virtual void saveStartIdsIfDue();
    /// Does not wait longer than a second for the workers, who have the fail ids while they read.
    virtual void saveStartIds();
    virtual void loadStartIds();

    /// Connects to the database and loads the fail ids. Call once. Throws BasicException when the
    /// database cannot be reached.
    void init();
    /// One poll, unless this service is a stand-by.
    void startHandlers();

    bool hasMessages(const QString &type, const QString &cardNumber);
    QueueInfo getQueueInfo();
    /// Errors of the main thread's store alone; workers count their own.
    int getErrorsCount() const;
    void resetErrorsCount();

private:
    /// False when the type is there already. Looking and entering are one step, so two starts that
    /// follow each other closely never make two workers of one type, which would deliver a row
    /// twice.
    bool enterType(const QString &type);
    void withdrawType(const QString &type);

    std::unique_ptr<HandlerFactory> factory;
    std::unique_ptr<queue::DAO> dao;
    std::shared_ptr<SharedState> state;
    QMutex startLock;
    qint64 lastSaveTime = 0;
    Log4Qt::Logger *logger;
};
