#include "handlers/loyalty/manzanaloyaltyonlinehandler.h"

#include "handlers/common/delivery.h"
#include "shared/core/basicexception.h"
#include "shared/core/singleton.h"
#include "shared/document/documentsdao.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/// The key in the card's operation info.
const QString transactionDateKey = u"TransactionDate"_s;

const QString updating = u"Обновление данных запроса на возврат"_s;

QString transactionDate(const DocumentCardRecord &card)
{
    const QJsonObject info = QJsonDocument::fromVariant(card.getOperationInfo()).object();
    return info.value(transactionDateKey).toString();
}

QDomElement chequeReference(const QDomDocument &request)
{
    return xmlutils::firstElement(request, u"ChequeReference"_s);
}

} // namespace

ManzanaLoyaltyOnlineHandler::ManzanaLoyaltyOnlineHandler()
    : BasicHandler(u"manzanaloyaltyonline"_s)
{
}

bool ManzanaLoyaltyOnlineHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    PreparedRequest request = readRequest(message, {.timeout = Timeout::fixed(15)});
    const QByteArray body = request.content();
    const QDomDocument document = xmlutils::selectXml(
        QString::fromUtf8(body),
        {u"OperationType"_s, u"ChequeReference"_s, u"Number"_s, u"DateTime"_s, u"CardNumber"_s},
        xmlutils::maxDocumentBytes);
    const QString operation = xmlutils::getValueByTag(document, u"OperationType"_s, 0);
    if (operation == u"Return" && !hasChequeDate(document))
        request.body = completedReturn(document, body);

    const auto client = sendRequest(*logger(), request);
    if (!succeeded(*client, *logger()))
        return false;
    const QByteArray reply = client->responseBody();
    if (!parseReply(reply))
        return false;
    if (operation == u"Sale")
        rememberSale(document, reply);
    return true;
}

bool ManzanaLoyaltyOnlineHandler::parseReply(const QByteArray &reply)
{
    const QDomDocument document = xmlutils::parseXml(reply, {u"ReturnCode"_s, u"Message"_s});
    const QString code = xmlutils::getValueByTag(document, u"ReturnCode"_s, 0);
    // Any text that is not a number above 0 is success, and so is this code.
    constexpr int alsoSuccess = 81301;
    const int value = code.toInt();
    if (!code.isEmpty() && (value < 1 || value == alsoSuccess))
        return true;
    logger()->error(u"Ошибка %1"_s, xmlutils::getValueByTag(document, u"Message"_s, 0));
    return code.isEmpty() ? keep(u"в ответе нет поля ReturnCode"_s)
                          : keep(u"код ошибки %1"_s.arg(value));
}

bool ManzanaLoyaltyOnlineHandler::hasChequeDate(const QDomDocument &request)
{
    logger()->debug(u"Проверка запроса по возврату"_s);
    return !xmlutils::getValueByTag(chequeReference(request), u"DateTime"_s, 0).isEmpty();
}

std::shared_ptr<DocumentCardRecord>
ManzanaLoyaltyOnlineHandler::findCardRecord(const QString &chequeNumber, const QString &cardNumber)
{
    DocumentsDao *documents = Singleton<DocumentsDao>::instance();
    const int id = documents->findCardId(chequeNumber, cardNumber);
    if (id < 1)
        return nullptr;
    return documents->readCard(id, true);
}

void ManzanaLoyaltyOnlineHandler::saveTransaction(int recordId, const QByteArray &reply)
{
    const QDomDocument document = xmlutils::parseXml(reply, {u"Processed"_s, u"TransactionID"_s});
    const QString processed = xmlutils::getValueByTag(document, u"Processed"_s, 0);
    DocumentCardRecord card;
    card.setId(recordId);
    card.setOperationInfo(
        QVariantMap{{transactionDateKey, QDateTime::fromString(processed, Qt::ISODate)}});
    card.setOperationId(xmlutils::getValueByTag(document, u"TransactionID"_s, 0));
    Singleton<DocumentsDao>::instance()->updateCard(card);
}

QByteArray ManzanaLoyaltyOnlineHandler::updateReturnRequest(const QDomDocument &request,
                                                            const DocumentCardRecord &card)
{
    logger()->info(updating);
    QDomDocument updated = request.cloneNode(true).toDocument();
    QDomElement reference = chequeReference(updated);
    const QString date = transactionDate(card);
    if (!reference.isNull()) {
        const QDomElement former = reference.firstChildElement(u"DateTime"_s);
        if (!former.isNull())
            reference.removeChild(former);
        reference.appendChild(xmlutils::createTextElement(updated, u"DateTime"_s, date));
    }
    return updated.toString(1).toUtf8();
}

QByteArray ManzanaLoyaltyOnlineHandler::completedReturn(const QDomDocument &request,
                                                        const QByteArray &body)
{
    const QString cheque = xmlutils::getValueByTag(chequeReference(request), u"Number"_s, 0);
    const QString number = xmlutils::getValueByTag(request, u"CardNumber"_s, 0);
    std::shared_ptr<DocumentCardRecord> card;
    try {
        card = findCardRecord(cheque, number);
    } catch (const BasicException &exception) {
        logger()->error(
            u"Продажа не найдена из-за ошибки базы данных, возврат отправляется без изменений: %1"_s,
            exception.tr().ru());
    }
    // If the till no longer knows the sale, the return is sent unchanged.
    if (!card || card->getOperationInfo().isNull())
        return body;
    // The document above contains only the selected elements.
    const QString whole = QString::fromUtf8(body);
    if (xmlutils::fitsATree(whole))
        return updateReturnRequest(xmlutils::parseXmlText(whole), *card);
    logger()->info(updating);
    return xmlutils::rewrittenInPieces(
        whole, {}, {u"ChequeReference"_s, u"DateTime"_s, transactionDate(*card)});
}

void ManzanaLoyaltyOnlineHandler::rememberSale(const QDomDocument &request, const QByteArray &reply)
{
    try {
        const auto card = findCardRecord(xmlutils::getValueByTag(request, u"Number"_s, 0),
                                         xmlutils::getValueByTag(request, u"CardNumber"_s, 0));
        if (card)
            saveTransaction(card->getId().toInt(), reply);
    } catch (const BasicException &exception) {
        // The service has booked the sale; another attempt would book it twice.
        logger()->error(u"Транзакция продажи не сохранена: %1"_s, exception.tr().ru());
    }
}
