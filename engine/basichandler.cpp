#include "engine/basichandler.h"

#include "engine/attempt.h"
#include "shared/core/compactjson.h"
#include "shared/core/inflight.h"
#include "shared/core/largedocuments.h"

#include <log4qt/logmanager.h>

#include <QScopeGuard>

#include <exception>

using namespace Qt::StringLiterals;

namespace {

constexpr int noFailId = -1;
/// A silent database server delays a statement and its probe for this long.
constexpr auto recordLimit = std::chrono::seconds(60);

} // namespace

BasicHandler::BasicHandler(const QString &type, TurnRule turnRule)
    : type_(type)
    , logger_(Log4Qt::LogManager::logger(u"%1"_s.arg(type)))
    , turnRule(std::move(turnRule))
{
}

void BasicHandler::setState(const std::shared_ptr<SharedState> &shared)
{
    state = shared;
    isHandedOver.store(true, std::memory_order_release);
}

void BasicHandler::run()
{
    // QThreadPool hands workers over under a lock inside Qt, which ThreadSanitizer cannot see; this
    // flag makes it visible.
    if (!isHandedOver.load(std::memory_order_acquire))
        qFatal("A worker runs without its state");
    logger_->info(u"Обработчик %1 запущен"_s, type_);
    state->runningTypes.lock()->insert(type_);
    dao = std::make_shared<queue::DAO>();
    dao->connect();
    processMessages();
    // Before the type counts as free; otherwise its next worker would still find it locked.
    dao->releaseType(type_);
    dao->onPassEnded();
    logger_->debug(u"Обработка сообщений завершена"_s);
}

BasicHandler::~BasicHandler()
{
    if (state)
        state->runningTypes.lock()->remove(type_);
    dao.reset();
}

BasicHandler::Turn BasicHandler::everyMessage(const Message &message, queue::DAO &,
                                              Log4Qt::Logger &logger)
{
    logger.info(u"Обработка сообщения: %1"_s, compactJson(message.body));
    return Turn::Now;
}

bool BasicHandler::isStopped()
{
    const bool stopped = state->stopFlag == 1;
    if (stopped)
        logger_->warn(u"Получен сигнал завершения работы"_s);
    return stopped;
}

void BasicHandler::onSendFailed(int id)
{
    state->startIds.lock()->insert(type_, id);
}

void BasicHandler::onMessageDone(int id)
{
    logger_->info(u"Удаление сообщения %1"_s, id);
    dao->deleteMessage(id);
}

void BasicHandler::onQueueEmpty()
{
    state->startIds.lock()->remove(type_);
}

void BasicHandler::processMessages()
{
    logger_->debug(u"Обработка сообщений"_s);
    Message done;
    while (!isStopped()) {
        // No fail id changes here: an untried message is not refused, and the next pass continues
        // with it.
        if (state->role != ServiceRole::Active) {
            logger_->info(u"Служба больше не обслуживает очередь, обработчик завершается"_s);
            return;
        }
        const std::optional<Message> next = nextMessage();
        if (!next) {
            logger_->warn(
                u"Сообщения типа '%1' доставляет другая служба (соединение %2), повтор при следующем опросе"_s
                    .arg(type_, dao->holderOfType(type_)));
            return;
        }
        const Message &message = *next;
        if (message.id < 1) {
            onQueueEmpty();
            return;
        }
        // The row is still there after DELETE: the database is read-only or full. Going on would
        // deliver the message again and again without a pause. The body is compared as well because
        // a table may give the id of a deleted row to a new one.
        if (message.id == done.id && message.body == done.body) {
            logger_->error(
                u"Сообщение %1 доставлено, но не удаляется из базы данных, повтор при следующем проходе"_s,
                message.id);
            onSendFailed(message.id);
            return;
        }

        const Turn turn = turnRule(message, *dao, *logger_);
        // The read may have reconnected, and a new connection does not have the type.
        if (!mayDeliver())
            return;
        // Lives until the outcome is recorded: a message whose row stays is delivered again.
        const inflight::DeliveryGuard delivery(type_, message.id);
        if (turn == Turn::Now && deliver(message)) {
            const inflight::CallGuard recording{recordLimit};
            onMessageDone(message.id);
            done = message;
            continue;
        }
        onSendFailed(message.id);
        if (turn != Turn::Later)
            return;
    }
}

bool BasicHandler::deliver(const Message &message)
{
    const auto memory = qScopeGuard(returnLargeDocuments);
    const Outcome outcome = attempt(message);
    if (outcome.verdict == Verdict::Dropped)
        logDrop(outcome);
    // Before the row is deleted: a crash in between leaves a message that is recorded twice, rather
    // than one that is gone without a record.
    if (state->outcomes)
        state->outcomes->take(outcome);
    return outcome.verdict != Verdict::Kept;
}

Outcome BasicHandler::attempt(const Message &message)
{
    Attempt current(message, references);
    currentAttempt = &current;
    const bool isFinished = send(message);
    currentAttempt = nullptr;
    if (state && state->outcomes) {
        for (const Fact &fact : current.facts())
            state->outcomes->note(fact);
    }
    return current.outcome(isFinished);
}

bool BasicHandler::send(const Message &message)
{
    // One row must not end the service: after the restart it would be the first one again.
    QString reason = u"причина неизвестна"_s;
    try {
        return sendMessage(message);
    } catch (const std::exception &exception) {
        reason = QString::fromUtf8(exception.what());
    } catch (...) {
    }
    logger_->error(u"Ошибка при обработке сообщения %1, сообщение остаётся: %2"_s.arg(
        QString::number(message.id), reason));
    return keep(reason, http::FailureKind::Request);
}

void BasicHandler::logDrop(const Outcome &outcome)
{
    const QString what = outcome.reference.isEmpty()
                             ? outcome.type
                             : u"%1, %2"_s.arg(outcome.type, outcome.reference);
    const QString status =
        outcome.status > 0 ? u", код ответа %1"_s.arg(outcome.status) : QString();
    Log4Qt::LogManager::logger(u"outcome"_s)
        ->info(u"Сообщение %1 (%2) снято с доставки%3: %4"_s.arg(QString::number(outcome.id), what,
                                                                 status, outcome.text));
}

bool BasicHandler::giveUp(const QString &reason)
{
    return say(Verdict::Dropped, reason, http::FailureKind::None);
}

bool BasicHandler::doneBefore(const QString &reason)
{
    return say(Verdict::Delivered, reason, http::FailureKind::None);
}

bool BasicHandler::keep(const QString &reason, http::FailureKind kind)
{
    return say(Verdict::Kept, reason, kind);
}

bool BasicHandler::say(Verdict verdict, const QString &reason, http::FailureKind kind)
{
    if (currentAttempt)
        currentAttempt->say(verdict, reason, kind);
    return verdict != Verdict::Kept;
}

std::optional<Message> BasicHandler::nextMessage()
{
    // Locked during the read, so that no snapshot of the fail ids is taken in the middle of it.
    const auto startIds = state->startIds.lock();
    const int failId = startIds->value(type_, noFailId);
    for (;;) {
        if (state->claimsTypes && !dao->claimType(type_))
            return {};
        const Message message = dao->getMessage(type_, failId, false, QString());
        // After a reconnect another service may have the type, and with it this row.
        if (message.id < 1 || mayDeliver())
            return message;
    }
}

bool BasicHandler::mayDeliver() const
{
    return !state->claimsTypes || dao->hasClaim();
}
