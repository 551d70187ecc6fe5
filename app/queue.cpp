#include "app/queue.h"

#include "app/queuehandler.h"
#include "app/servicelock.h"
#include "app/settings.h"
#include "handlers/handlertable.h"
#include "shared/core/config.h"
#include "shared/core/paths.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>

#include <algorithm>
#include <chrono>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

/// The longest interval of a QTimer, which counts milliseconds in an int.
constexpr std::chrono::seconds maxPeriod{std::numeric_limits<int>::max() / 1000};

QJsonObject description(const QString &text)
{
    return {{u"description"_s, text}};
}

} // namespace

Queue::Queue(ServiceLock *serviceLock)
    : serviceLock(serviceLock)
    , logger(Log4Qt::LogManager::logger(u"queue"_s))
{
    Config::setConfigsPathList(settingsFolders(), {});
}

Queue::~Queue() = default;

void Queue::start()
{
    logger->info(u"Запуск обработчика очередей сообщений"_s);
    handler = std::make_shared<QueueHandler>(handlerTable(), state);
    handler->init();
    agreeOnRole();
    startServer();

    timer.setSingleShot(true);
    const std::chrono::seconds period = std::min(settings::queue::timeout.value(), maxPeriod);
    logger->info(u"Период обработки сообщений: %1 сек."_s, static_cast<int>(period.count()));
    handler->startHandlers();
    timer.setInterval(period);
    connect(&timer, &QTimer::timeout, this, &Queue::runHandlers);
    timer.start();
}

void Queue::stop()
{
    // Before the line is logged: a reader of that line may rely on no further message being begun.
    state->stopFlag.exchange(1);
    logger->warn(u"Получен сигнал завершения работы"_s);
}

QJsonObject Queue::messages(const QStringList &parts)
{
    if (!hasTypeAndCard(parts)) {
        // An invalid request is answered with true: the caller then waits, rather than continue
        // without its messages.
        QJsonObject refusal = description(u"Некорректные параметры запроса"_s);
        refusal.insert(u"result"_s, true);
        return refusal;
    }
    logger->info(
        u"Проверка наличия сообщений типа '%1' для карты '%2'"_s.arg(parts.at(1), parts.at(2)));
    return {{u"result"_s, handler->hasMessages(parts.at(1), parts.at(2))}};
}

QJsonObject Queue::start(const QStringList &parts)
{
    if (!hasTypeAndCard(parts))
        return description(u"Некорректные параметры запроса"_s);
    logger->info(u"Принудительный запуск обработчика сообщений типа '%1' для карты '%2'"_s.arg(
        parts.at(1), parts.at(2)));
    switch (handler->startHandler(parts.at(1), parts.at(2))) {
    case QueueHandler::Started:
        return description(u"Обработчик успешно запущен"_s);
    case QueueHandler::AlreadyRunning:
        return description(u"Обработчик уже запущен"_s);
    default:
        return description(u"Не удалось запустить обработчик"_s);
    }
}

QJsonObject Queue::status(const QStringList & /*parts*/)
{
    const QueueInfo info = handler->getQueueInfo();
    if (info.count == -1)
        return description(u"Ошибка подключения к БД"_s);
    return {{u"messagesCount"_s, info.count},
            {u"firstMessageDateTime"_s, info.firstMessageTime.toString()}};
}

void Queue::dataReceived(const RequestHeader &header, const QByteArray & /*content*/)
{
    logger->info(u"Получен запрос"_s);
    const QByteArray body = QJsonDocument(answer(header.getPath().split(u'/', Qt::SkipEmptyParts)))
                                .toJson(QJsonDocument::Compact);

    // Always 200: callers read the result from the object.
    ResponseHeader response;
    response.setStatusLine(200, u"OK"_s, 1, 1);
    response.setContentType(u"application/json"_s);
    response.setContentLength(static_cast<int>(body.size()));
    server->sendResponse(response, body);
    servedHandler();
}

void Queue::runHandlers()
{
    handler->startHandlers();
    timer.start();
    servedHandler();
}

void Queue::startServer()
{
    const int port = settings::queue::port.value();
    server = std::make_shared<HttpServer>(port);
    connect(server.get(), &HttpServer::requestReceived, this, &Queue::dataReceived);
    if (!HttpServer::isPort(port))
        logger->error(u"Порт управления %1 вне пределов 1-65535, исправьте параметр queue:port"_s,
                      port);
    else if (!server->listenError().isEmpty())
        logger->error(
            u"Не удалось занять порт управления %1 (%2), остановите занявшую его программу или задайте другой порт в параметре queue:port и перезапустите службу"_s
                .arg(QString::number(port), server->listenError()));
}

void Queue::agreeOnRole()
{
    if (!serviceLock)
        return;
    connect(serviceLock, &ServiceLock::roleChanged, this, &Queue::followRole);
    serviceLock->start(state);
    wasActive = state->role == ServiceRole::Active;
}

void Queue::followRole()
{
    const bool isActive = state->role == ServiceRole::Active;
    if (isActive && !wasActive)
        runHandlers();
    wasActive = isActive;
}

QJsonObject Queue::answer(const QStringList &parts)
{
    const QString command = parts.value(0);
    if (command == u"messages")
        return messages(parts);
    if (command == u"start")
        return start(parts);
    if (command == u"status")
        return status(parts);
    if (command == u"db_errors_count")
        return {{u"errorsCount"_s, handler->getErrorsCount()}};
    if (command == u"db_reset_errors") {
        handler->resetErrorsCount();
        return {};
    }
    return description(u"Неподдерживаемая команда"_s);
}

bool Queue::hasTypeAndCard(const QStringList &parts)
{
    if (parts.size() == 3)
        return true;
    logger->warn(u"Некорректные параметры запроса"_s);
    return false;
}
