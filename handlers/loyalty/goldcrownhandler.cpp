#include "handlers/loyalty/goldcrownhandler.h"

#include "handlers/common/certificates.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

GoldCrownHandler::GoldCrownHandler()
    : BasicHandler(u"goldcrown"_s)
{
}

bool GoldCrownHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto headers = messageHeaders(messageValue<QVariantMap>(message, u"headers"_s));
    const QUrl url(messageValue<QString>(message, u"url"_s), QUrl::TolerantMode);
    const auto body = messageValue<QByteArray>(message, u"body"_s);
    const auto client = createClient(*logger());
    client->setTimeout(10);

    const auto password = messageValue<QString>(message, u"certificatePassword"_s);
    const QString certificate =
        prepareCertificate(messageValue<QString>(message, u"certificatePath"_s), password);
    if (certificate.isEmpty())
        return false;
    client->setCertificatePath(certificate);
    client->setCertificatePassword(password);
    client->post(url, body, headers);
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }
    return parseReply(client->responseBody());
}

bool GoldCrownHandler::parseReply(const QByteArray &reply)
{
    const QDomDocument document = xmlutils::parseXml(reply);
    const QDomElement status = document.elementsByTagName(u"status"_s).at(0).toElement();
    if (status.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует поле status"_s);
        return false;
    }
    const QDomElement code = status.elementsByTagName(u"code"_s).at(0).toElement();
    if (code.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует поле code"_s);
        return false;
    }
    const int value = code.text().toInt(); // no number reads as 0, and 0 is success
    if (value == 0)
        return true;

    const QDomElement description = status.elementsByTagName(u"description"_s).at(0).toElement();
    const bool isAllowed = allowedErrors.contains(value);
    if (isAllowed) {
        logger()->warn(
            u"Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s);
        onAllowedError(description.text());
    }
    logger()->warn(u"Код ошибки: %1"_s, value);
    if (!description.isNull())
        logger()->warn(u"Сообщение об ошибке: %1"_s, description.text());
    return isAllowed;
}

void GoldCrownHandler::onAllowedError(const QString & /*description*/) {}

QString GoldCrownHandler::prepareCertificate(const QString &path, const QString &password)
{
    // The word spasibo is part of the name on every till.
    static const CertificateRules rules{.fileName = u"queue_spasibo_%1"_s};
    return convertCertificate(*logger(), path, password, rules);
}
