#pragma once

#include "engine/sharedstate.h"
#include "shared/net/httpheader.h"
#include "shared/net/httpserver.h"

#include <QJsonObject>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>

class QueueHandler;
class ServiceLock;

namespace Log4Qt {
class Logger;
}

/// The service: polls the table `message` and answers the till's other programs on a local port.
/// Thread: the main thread, which serves polls and commands in turn.
class Queue : public QObject
{
    Q_OBJECT

public:
    /// Sets the folders of the settings. `serviceLock` decides whether this service delivers and
    /// must outlive the object. Without a lock the service delivers.
    explicit Queue(ServiceLock *serviceLock = nullptr);
    ~Queue() override;

    /// Connects to the database, opens the control port and makes the first poll. Throws
    /// BasicException when the database cannot be reached.
    void start();
    /// `handler` runs after each poll and each command, as a sign that the main thread does not
    /// hang.
    void setServedHandler(std::function<void()> handler) { servedHandler = std::move(handler); }
    /// `sink` receives the outcome of each message, also after this object's end. Call before
    /// start().
    void setOutcomes(const std::shared_ptr<OutcomeSink> &sink) { state->outcomes = sink; }
    /// Asks all workers to end after their current message. Thread: any.
    void stop();

    // The commands of the control port. `parts`: the parts of the request's path, the command
    // first. Each returns its answer.
    virtual QJsonObject messages(const QStringList &parts);
    virtual QJsonObject start(const QStringList &parts);
    virtual QJsonObject status(const QStringList &parts);

private Q_SLOTS:
    void dataReceived(const RequestHeader &header, const QByteArray &content);
    void runHandlers();

private:
    void startServer();
    void agreeOnRole();
    /// A service that becomes active polls at once instead of waiting for the timer.
    void followRole();
    QJsonObject answer(const QStringList &parts);
    bool hasTypeAndCard(const QStringList &parts);

    QTimer timer{this};
    std::shared_ptr<QueueHandler> handler;
    std::shared_ptr<HttpServer> server;
    /// Holds the stop flag. Workers share it and may outlive this object.
    std::shared_ptr<SharedState> state = std::make_shared<SharedState>();
    ServiceLock *const serviceLock;
    bool wasActive = true;
    std::function<void()> servedHandler = [] {
    };
    Log4Qt::Logger *logger;
};
