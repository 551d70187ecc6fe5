#include "handlers/loyalty/goldcrownhandler.h"

#include "handlers/common/certificates.h"
#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

GoldCrownHandler::GoldCrownHandler(const QString &type)
    : BasicHandler(type)
{
}

bool GoldCrownHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const PreparedRequest request = readRequest(message, {.timeout = Timeout::fixed(10)});
    const auto client = createClient(*logger(), request);
    const auto password = messageValue<QString>(message, u"certificatePassword"_s);
    const QString pem =
        prepareCertificate(messageValue<QString>(message, u"certificatePath"_s), password);
    if (pem.isEmpty())
        return keep(u"нет сертификата для соединения"_s, http::FailureKind::Certificate);
    client->setCertificatePath(pem);
    client->setCertificatePassword(password);

    sendRequest(*client, request);
    return succeeded(*client, *logger()) && parseReply(client->responseBody());
}

bool GoldCrownHandler::parseReply(const QByteArray &reply)
{
    const QDomDocument document =
        xmlutils::parseXml(reply, {u"status"_s, u"code"_s, u"description"_s});
    const QDomElement status = xmlutils::firstElement(document, u"status"_s);
    if (status.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует поле status"_s);
        return keep(u"в ответе нет поля status"_s);
    }
    const QDomElement code = xmlutils::firstElement(status, u"code"_s);
    if (code.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует поле code"_s);
        return keep(u"в ответе нет поля code"_s);
    }
    // A text that is not a number gives 0, and 0 is success.
    const int value = code.text().toInt();
    if (value == 0)
        return true;

    const QDomElement description = xmlutils::firstElement(status, u"description"_s);
    const bool isAllowed = allowedErrors.contains(value);
    if (isAllowed) {
        logger()->warn(
            u"Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s);
        onAllowedError(description.text());
    }
    logger()->warn(u"Код ошибки: %1"_s, value);
    if (!description.isNull())
        logger()->warn(u"Сообщение об ошибке: %1"_s, description.text());
    return isAllowed ? giveUp(u"допустимая ошибка, код %1"_s.arg(value))
                     : keep(u"код ошибки %1"_s.arg(value));
}

void GoldCrownHandler::onAllowedError(const QString &description)
{
    Q_UNUSED(description)
}

QString GoldCrownHandler::prepareCertificate(const QString &path, const QString &password)
{
    // An older version used this name, and its files are on the tills.
    const CertificateRules rules{.fileName = u"queue_spasibo_%1"_s};
    return convertCertificate(*logger(), path, password, rules).pem;
}
