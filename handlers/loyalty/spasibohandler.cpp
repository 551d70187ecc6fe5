#include "handlers/loyalty/spasibohandler.h"

#include "handlers/common/certificates.h"
#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"
#include "handlers/loyalty/spasibosettings.h"
#include "shared/net/httpparams.h"
#include "shared/net/httpresponse.h"
#include "shared/net/serder.h"

#include <log4qt/logger.h>

#include <QDir>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

/// Parses entries such as "503" or "422 CARD_NOT_FOUND"; skips entries that do not begin with a
/// number.
QList<RetryRule> parseRetryRules(const QStringList &entries)
{
    QList<RetryRule> rules;
    for (const QString &entry : entries) {
        const QStringList pieces = entry.simplified().split(u' ', Qt::SkipEmptyParts);
        bool isNumber = false;
        const int httpStatus = pieces.value(0).toInt(&isNumber);
        if (isNumber)
            rules.append({httpStatus, pieces.value(1)});
    }
    return rules;
}

CertificateRules certificateRules()
{
    return {
        .convertedEndings = {u".pfx"_s, u".p12"_s},
        .digest = QCryptographicHash::Sha256,
        .folder = QDir::tempPath() + u"/spasibo-certs"_s,
        .fileName = u"%1"_s,
        .passwordVariable = u"SPASIBO_CERT_PASSWORD"_s,
        .isPrivate = true,
    };
}

int timeoutSeconds(const Message &message)
{
    const int seconds = messageValue<int>(message, u"timeout"_s);
    return seconds < 1 ? static_cast<int>(settings::spasibo::timeout.value().count()) : seconds;
}

/// The number of this answered attempt.
qint64 attemptNumber(const Message &message)
{
    bool isNumber = false;
    const qint64 earlier = message.statusCode.toInt(&isNumber);
    return isNumber ? earlier + 1 : 1;
}

/// Empty if the reply has no error code as a text.
QString errorCodeOf(const QByteArray &reply)
{
    return http::parseReply(reply.trimmed()).object().value(u"errorCode"_s).toString();
}

} // namespace

SpasiboHandler::SpasiboHandler()
    : BasicHandler(u"spasibo"_s)
    , retryRules(parseRetryRules(settings::spasibo::restRetryErrors.value()))
    , sendLimit(settings::spasibo::sendLimit.value())
{
}

bool SpasiboHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения Purchase API %1"_s, message.id);
    const auto params = serder::deserialize<http::Params>(message.body);
    if (!params.url.isValid()) {
        logger()->error(u"Некорректный url в сообщении очереди"_s);
        return giveUp(u"в сообщении нет правильного адреса"_s);
    }

    const auto client = createClient(*logger());
    client->setTimeout(timeoutSeconds(message));
    const auto certificatePath = messageValue<QString>(message, u"certificatePath"_s);
    if (!certificatePath.isEmpty()) {
        const auto password = messageValue<QString>(message, u"certificatePassword"_s);
        const ConvertedCertificate certificate =
            convertCertificate(*logger(), certificatePath, password, certificateRules());
        // A request without its certificate could be refused for good, and the purchase would be
        // lost.
        if (certificate.isRefused)
            return keep(u"файл сертификата могут менять другие"_s, http::FailureKind::Certificate);
        // Without a certificate the request is sent anyway; the service decides whether it needs
        // one.
        client->setCertificatePath(certificate.pem);
        client->setCertificatePassword(password);
        client->setPrivateKeyPath(messageValue<QString>(message, u"privateKeyPath"_s));
    }
    client->send(params);
    return classifyReply(message, client->response());
}

bool SpasiboHandler::classifyReply(const Message &message, const http::Response &response)
{
    if (response.isNetworkError()) {
        logger()->error(u"Сетевая ошибка/таймаут при отправке: %1"_s, response.errorText.ru());
        return false;
    }
    if (response.status == 0 && !succeeded(response, *logger()))
        return false;

    // Before the status is checked: if deleting a delivered message fails, its row shows that the
    // service has answered.
    const qint64 attempt = attemptNumber(message);
    if (dao)
        dao->updateStatusCode(message.id, QString::number(attempt));
    if (response.status >= 200 && response.status <= 299)
        return true;

    const QString errorCode = errorCodeOf(response.body);
    const QString status = QString::number(response.status);
    const QString label = errorCode.isEmpty() ? status : u"%1 (%2)"_s.arg(status, errorCode);
    if (!isRetried(response.status, errorCode)) {
        logger()->warn(u"HTTP %1 — сообщение будет удалено из очереди (не retry)"_s, label);
        return giveUp(u"сервис отказал окончательно: HTTP %1"_s.arg(shownWord(label)));
    }
    if (attempt < sendLimit) {
        logger()->warn(u"HTTP %1 — сообщение останется в очереди для повтора (попытка %2/%3)"_s.arg(
            label, QString::number(attempt), QString::number(sendLimit)));
        return keep(u"HTTP %1, попытка %2 из %3"_s.arg(shownWord(label), QString::number(attempt),
                                                       QString::number(sendLimit)));
    }
    logger()->warn(u"HTTP %1 — достигнут send_limit=%2, сообщение будет удалено из очереди"_s.arg(
        label, QString::number(sendLimit)));
    return giveUp(u"исчерпаны попытки отправки: %1, HTTP %2"_s.arg(QString::number(sendLimit),
                                                                   shownWord(label)));
}

bool SpasiboHandler::isRetried(int httpStatus, const QString &errorCode) const
{
    return std::ranges::any_of(retryRules, [&](const RetryRule &rule) {
        return rule.httpStatus == httpStatus
               && (rule.errorCodeText.isEmpty()
                   || rule.errorCodeText.compare(errorCode, Qt::CaseInsensitive) == 0);
    });
}
