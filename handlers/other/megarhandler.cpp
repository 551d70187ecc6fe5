#include "handlers/other/megarhandler.h"

#include "handlers/common/delivery.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

/// Refusal codes which mean that the transaction was handled earlier.
bool isHandledBefore(int reason)
{
    return reason == 227 || reason == 331 || reason == 442;
}

} // namespace

MegarHandler::MegarHandler(const QString &type)
    : BasicHandler(type)
{
}

bool MegarHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto client = sendRequest(*logger(), readRequest(message));
    return succeeded(*client, *logger()) && parseReply(client->responseBody());
}

bool MegarHandler::parseReply(const QByteArray &reply)
{
    xmlutils::ParseError error;
    const QDomDocument document =
        xmlutils::selectXml(QString::fromUtf8(reply), {u"Rspn"_s, u"RspnRsn"_s},
                            xmlutils::maxReplyBytes, &error, xmlutils::Prefixes::Namespaces);
    if (document.isNull()) {
        logger()->warn(u"Не удалось интерпретировать ответ от сервера([%1, %2] %3)"_s.arg(
            QString::number(error.line), QString::number(error.column), error.message));
        return keep(u"ответ не прочитан"_s);
    }
    const QDomElement root = document.documentElement();
    const QDomElement result = xmlutils::firstElement(root, u"Rspn"_s);
    if (result.isNull()) {
        logger()->warn(u"Не найден результат обработки транзакции"_s);
        return keep(u"в ответе нет поля Rspn"_s);
    }
    if (result.text() == u"APPR")
        return true;
    // A missing reason and one that is not a number give 0, which is not in the list.
    const int reason = xmlutils::getValueByTag(root, u"RspnRsn"_s, 0).toInt();
    if (isHandledBefore(reason)) {
        logger()->warn(u"Транзакция была обработана ранее, удаляем сообщение из очереди"_s);
        return doneBefore(u"транзакция была обработана ранее"_s);
    }
    logger()->warn(u"Операция не выполнена"_s);
    return keep(u"операция не выполнена, код %1"_s.arg(reason));
}
