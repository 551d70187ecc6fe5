#include "handlers/loyalty/loymaxhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"
#include "handlers/loyalty/loymaxsettings.h"
#include "shared/core/basicexception.h"
#include "shared/core/singleton.h"
#include "shared/document/documentsdao.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

/// The service refuses the price corrections of a request.
constexpr int correctionRefused = 217;

} // namespace

LoymaxHandler::LoymaxHandler()
    : BasicHandler(u"loymax"_s)
    , timeout(static_cast<int>(settings::loymax::timeout.value().count()))
{
}

bool LoymaxHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    PreparedRequest request = readRequest(message, {.timeout = Timeout::fixed(timeout)});
    const auto client = sendRequest(*logger(), request);
    LoymaxReply reply = parseReply(client->response());

    if (reply.errorCode == correctionRefused) {
        logger()->info(u"Попытка отправки сообщения без атрибутов корректировки цены"_s);
        const QByteArray uncorrected = xmlutils::rewritten(QString::fromUtf8(request.content()),
                                                           {u"ChequeLine"_s, u"Correction"_s});
        if (uncorrected.isEmpty()) {
            logger()->error(u"Некорректный xml-запрос"_s);
            return keep(u"в сообщении нет правильного документа XML"_s, http::FailureKind::Request);
        }
        request.body = uncorrected;
        sendRequest(*client, request);
        reply = parseReply(client->response());
    }
    if (!reply.transactionId.isEmpty())
        saveTransactionId(message, reply.transactionId);
    return reply.done;
}

LoymaxReply LoymaxHandler::parseReply(const http::Response &response)
{
    LoymaxReply reply;
    if (!succeeded(response, *logger()))
        return reply;
    const QDomDocument document = xmlutils::parseXml(
        response.body, {u"CancelPurchaseResponse"_s, u"ConfirmPurchaseResponse"_s,
                        u"DiscountResponse"_s, u"RefundResponse"_s});
    QDomElement element = xmlutils::firstElement(document, u"CancelPurchaseResponse"_s);
    if (element.isNull())
        element = xmlutils::firstElement(document, u"ConfirmPurchaseResponse"_s);
    if (element.isNull()) {
        element = xmlutils::firstElement(document, u"DiscountResponse"_s);
        reply.transactionId = element.attribute(u"TransactionID"_s);
    }
    if (element.isNull())
        element = xmlutils::firstElement(document, u"RefundResponse"_s);
    if (element.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера"_s);
        reply.done = keep(u"в ответе нет известного элемента"_s);
        return reply;
    }

    const QString code = element.attribute(u"ErrorCode"_s);
    reply.errorCode = code.toInt();
    if (code == u"0") {
        reply.done = true;
        return reply;
    }
    if (code == u"207") {
        logger()->warn(
            u"Ранее запрос уже был успешно доставлен на сервер. Сообщение будет удалено из очереди"_s);
        reply.done = doneBefore(u"запрос был доставлен ранее"_s);
        return reply;
    }
    logger()->warn(u"Код ошибки: %1"_s, code);
    const QString text = element.attribute(u"ErrorMessage"_s);
    if (!text.isEmpty())
        logger()->warn(u"Сообщение об ошибке: %1"_s, text);
    if (settings::loymax::uncriticalErrors.value().contains(code)) {
        logger()->warn(
            u"Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s);
        reply.done = giveUp(u"допустимая ошибка, код %1"_s.arg(code));
    } else {
        reply.done = keep(u"код ошибки: %1"_s.arg(shownWord(code)));
    }
    return reply;
}

void LoymaxHandler::updateTransactionId(const QString &cardId, const QString &transactionId)
{
    logger()->info(
        u"Обновление идентификатора транзакции %2 для карты %1"_s.arg(cardId, transactionId));
    DocumentCardRecord card;
    card.setId(cardId);
    card.setOperationId(transactionId);
    Singleton<DocumentsDao>::instance()->updateCard(card);
}

void LoymaxHandler::saveTransactionId(const Message &message, const QString &transactionId)
{
    try {
        updateTransactionId(messageValue<QString>(message, u"cardId"_s), transactionId);
    } catch (const BasicException &exception) {
        // Only the reply decides: another attempt would post an accepted purchase twice.
        logger()->error(u"Идентификатор транзакции не сохранён: %1"_s, exception.tr().ru());
    }
}
