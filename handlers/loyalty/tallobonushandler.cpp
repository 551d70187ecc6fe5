#include "handlers/loyalty/tallobonushandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

constexpr int timeoutSeconds = 180;

// The last argument of the client's operations.
constexpr bool isFinal = true;
constexpr bool isNotFinal = false;

} // namespace

TalloBonusHandler::TalloBonusHandler(const QString &type)
    : BasicHandler(type)
    , client(std::make_shared<TalloBonusClient>())
{
    const auto bound = [this](void (TalloBonusHandler::*operation)(const TalloBonusMessage &)) {
        return std::bind_front(operation, this);
    };
    // clang-format off
    methods = {
        {u"add"_s,                     bound(&TalloBonusHandler::add)},
        {u"sub"_s,                     bound(&TalloBonusHandler::sub)},
        {u"back"_s,                    bound(&TalloBonusHandler::back)},
        {u"commit"_s,                  bound(&TalloBonusHandler::commit)},
        {u"rollback"_s,                bound(&TalloBonusHandler::rollback)},
        {u"setAdditionalCardStatus"_s, bound(&TalloBonusHandler::setAdditionalCardStatus)},
        {u"revertEarnBySessionId"_s,   bound(&TalloBonusHandler::revertEarnBySessionId)},
    };
    // clang-format on
}

bool TalloBonusHandler::sendMessage(const Message &message)
{
    const auto method = messageValue<QString>(message, u"method"_s);
    if (!methods.contains(method)) {
        logger()->warn(u"Неподдерживаемый метод '%1'"_s, method);
        return keep(u"неизвестный метод сообщения"_s, http::FailureKind::Request);
    }

    const TalloBonusMessage bonusMessage(message);
    prepareClient(bonusMessage);
    try {
        methods.value(method)(bonusMessage);
    } catch (const BonusUncriticalException &error) {
        logger()->warn(error.tr().ru());
        return giveUp(refusalText(error.tr().ru()));
    } catch (...) {
        // After any other failure the message gets another attempt.
        return false;
    }
    return true;
}

void TalloBonusHandler::add(const TalloBonusMessage &message)
{
    client->add(message.sessionId, message.card, message.sessionInfo, message.assetGroup,
                message.nonConfirm, isNotFinal);
}

void TalloBonusHandler::sub(const TalloBonusMessage &message)
{
    client->sub(message.sessionId, message.card, message.sessionInfo, message.assetGroup,
                message.nonConfirm, isNotFinal);
}

void TalloBonusHandler::back(const TalloBonusMessage &message)
{
    if (message.checkAssets)
        client->checkAssets(message.parentSessionId);
    client->back(message.card, message.sessionInfo, message.assetGroup, message.parentSessionId,
                 message.fullReturn, isFinal);
}

void TalloBonusHandler::commit(const TalloBonusMessage &message)
{
    if (!message.card.number.isEmpty())
        client->setAdditionalCardStatus(message.card, message.additionalCardStatus,
                                        message.cardStatus);
    client->commit(message.sessionId, true, message.reason, message.source);
}

void TalloBonusHandler::rollback(const TalloBonusMessage &message)
{
    client->rollback(message.sessionId, true, message.reason, message.source);
}

void TalloBonusHandler::setAdditionalCardStatus(const TalloBonusMessage &message)
{
    client->setAdditionalCardStatus(message.card, message.additionalCardStatus, message.cardStatus);
}

void TalloBonusHandler::revertEarnBySessionId(const TalloBonusMessage &message)
{
    client->back(message.card, message.sessionInfo, message.assetGroup, message.parentSessionId,
                 message.fullReturn, isNotFinal);
}

void TalloBonusHandler::prepareClient(const TalloBonusMessage &message)
{
    client->setTerminalId(message.terminalId);
    client->setUser(message.user);
    client->setPassword(message.password);
    if (!message.endPoint.isEmpty())
        client->setEndPoint(message.endPoint);
    client->setTimeout(timeoutSeconds);

    QList<QUrl> hosts;
    for (const QString &host : message.hosts)
        hosts.append(QUrl::fromUserInput(host));
    client->setHosts(hosts);
}
