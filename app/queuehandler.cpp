#include "app/queuehandler.h"

#include "engine/basichandler.h"
#include "shared/core/currenttime.h"
#include "shared/core/fileutils.h"
#include "shared/core/mockfactory.h"
#include "shared/core/paths.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QThreadPool>

using namespace Qt::StringLiterals;

namespace {

constexpr int maxThreadCount = 100;
constexpr auto saveInterval = std::chrono::seconds(120);
constexpr auto snapshotPatience = std::chrono::seconds(1);

} // namespace

QueueHandler::QueueHandler(std::span<const HandlerRow> handlers, std::shared_ptr<SharedState> state)
    : factory(std::make_unique<HandlerFactory>(handlers))
    , state(std::move(state))
    , logger(Log4Qt::LogManager::logger(u"queue"_s))
{
}

QueueHandler::~QueueHandler() = default;

int QueueHandler::startHandler(const QString &type, const QString &cardNumber)
{
    if (state->role != ServiceRole::Active)
        return NotStarted;
    const QMutexLocker startLocker(&startLock);
    if (!enterType(type))
        return AlreadyRunning;
    auto withdrawal = qScopeGuard([this, &type] { withdrawType(type); });

    QThreadPool *pool = QThreadPool::globalInstance();
    if (pool->activeThreadCount() >= pool->maxThreadCount()) {
        logger->warn(
            u"Невозможно запустить обработчик типа %1, достигнут лимит количества потоков (%2)"_s
                .arg(type, QString::number(pool->maxThreadCount())));
        return NotStarted;
    }
    BasicHandler *handler = factory->create(type);
    if (!handler)
        return NotStarted;
    handler->setCardNumber(cardNumber);
    handler->setState(state);
    logger->info(u"Запуск обработчика типа '%1'"_s, type);
    // The worker's destructor takes the type out, whether or not the worker ran.
    withdrawal.dismiss();
    pool->start(handler, 0);
    return Started;
}

bool QueueHandler::enterType(const QString &type)
{
    const auto types = state->runningTypes.lock();
    const qsizetype former = types->size();
    types->insert(type);
    return types->size() != former;
}

void QueueHandler::withdrawType(const QString &type)
{
    state->runningTypes.lock()->remove(type);
}

QList<TypeCount> QueueHandler::getStatus()
{
    const QList<TypeCount> counts = dao->getMessageTypeCounts();
    if (counts.isEmpty()) {
        logger->debug(u"В очереди нет сообщений"_s);
        return counts;
    }
    logger->info(u"Статус очереди сообщений:"_s);
    for (const auto &[type, count] : counts) {
        const bool isRunning = state->runningTypes.lock()->contains(type);
        logger->info(u"  %1: %2 сообщ. (обработчик %3активен)"_s.arg(
            type, QString::number(count), isRunning ? QString() : u"не "_s));
    }
    return counts;
}

void QueueHandler::saveStartIdsIfDue()
{
    const qint64 now = MockFactory<CurrentTime>::create()->currentDateTime().toSecsSinceEpoch();
    // A clock that was set back counts as time that has passed.
    if (std::chrono::seconds(qAbs(now - lastSaveTime)) < saveInterval)
        return;
    lastSaveTime = now;
    saveStartIds();
}

void QueueHandler::saveStartIds()
{
    logger->trace(u"Запись стартовых идентификаторов в файл"_s);
    // Each worker holds the mutex while it reads and may wait for a silent server. Waiting for all
    // of them would exceed the watchdog's timeout.
    auto ids = state->startIds.tryLock(snapshotPatience);
    if (!ids) {
        logger->debug(
            u"Стартовые идентификаторы заняты обработчиками, запись при следующем опросе"_s);
        lastSaveTime = 0;
        return;
    }
    QMap<QString, int> snapshot = **ids;
    // An implicitly shared copy would be read while a worker changes the original.
    snapshot.detach();
    ids.reset();
    QJsonObject object;
    for (const auto &[type, id] : snapshot.asKeyValueRange())
        object.insert(type, id);
    // If the file cannot be written, refused messages are tried again after a restart; no row is
    // lost.
    fileutils::writeToFile(startIdsFile(), object, QIODevice::ReadWrite | QIODevice::Truncate);
}

void QueueHandler::loadStartIds()
{
    const QByteArray text = fileutils::readFromFile(startIdsFile(), QIODevice::ReadOnly);
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const int id = entry.value().toInt();
        logger->debug(
            u" стартовый идентификатор для %1: %2"_s.arg(entry.key(), QString::number(id)));
        state->startIds.lock()->insert(entry.key(), id);
    }
}

void QueueHandler::init()
{
    QThreadPool::globalInstance()->setMaxThreadCount(maxThreadCount);
    dao = std::make_unique<queue::DAO>();
    dao->connect();
    loadStartIds();
}

void QueueHandler::startHandlers()
{
    if (state->role == ServiceRole::StandBy)
        return;
    logger->info(u"Запуск обработчиков"_s);
    const QList<TypeCount> counts = getStatus();
    for (const auto &[type, count] : counts)
        startHandler(type, QString());
    saveStartIdsIfDue();
}

bool QueueHandler::hasMessages(const QString &type, const QString &cardNumber)
{
    return dao->hasMessages(type, cardNumber);
}

QueueInfo QueueHandler::getQueueInfo()
{
    return dao->getQueueInfo();
}

int QueueHandler::getErrorsCount() const
{
    return dao->getErrorsCount();
}

void QueueHandler::resetErrorsCount()
{
    dao->resetErrorsCount();
}
