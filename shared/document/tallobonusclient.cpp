#include "shared/document/tallobonusclient.h"

#include "shared/core/mockfactory.h"
#include "shared/net/restclient.h"

#include <log4qt/logmanager.h>

#include <QJsonValue>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"tallobonusclient"_s);
}

QJsonObject jsonOf(const BonusCard &card)
{
    return {{u"number"_s, card.number}, {u"amount"_s, card.amount}};
}

/// With the UTC offset, so that the server need not know the till's time zone.
QJsonValue jsonOf(const QDateTime &time)
{
    if (!time.isValid())
        return QJsonValue::Null;
    return time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate);
}

QJsonObject jsonOf(const BonusAssetGroup &group)
{
    return {{u"id"_s, group.id},
            {u"beginDate"_s, jsonOf(group.beginDate)},
            {u"endDate"_s, jsonOf(group.endDate)},
            {u"weight"_s, group.weight}};
}

QJsonObject movement(const QString &sessionId, const BonusCard &card,
                     const SessionInfo &sessionInfo, const BonusAssetGroup &assetGroup,
                     bool nonConfirm, bool isFinal)
{
    return {{u"sessionId"_s, sessionId},
            {u"card"_s, jsonOf(card)},
            {u"sessionInfo"_s, sessionInfo.toJson()},
            {u"assetGroup"_s, jsonOf(assetGroup)},
            {u"nonConfirm"_s, nonConfirm},
            {u"final"_s, isFinal}};
}

QJsonObject sessionEnd(const QString &sessionId, bool flag, const QString &reason,
                       const QString &source)
{
    return {{u"sessionId"_s, sessionId},
            {u"flag"_s, flag},
            {u"reason"_s, reason},
            {u"source"_s, source}};
}

RestClient::Headers headersFor(const QString &user, const QString &password)
{
    if (user.isEmpty() && password.isEmpty())
        return {};
    const QByteArray account = u"%1:%2"_s.arg(user, password).toUtf8();
    return {{u"Authorization"_s, u"Basic "_s + QString::fromLatin1(account.toBase64())}};
}

QString shown(const QUrl &host)
{
    return host.toDisplayString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment);
}

[[noreturn]] void fail(const QString &operation, const tr::Tr &text)
{
    logger()->error(
        u"Ошибка сервера бонусов при выполнении операции %1: %2"_s.arg(operation, text.ru()));
    throw BonusSystemError(text);
}

/// The server's reason for a refusal, otherwise a description of the failure.
tr::Tr refusalText(const QJsonObject &reply, const http::Response &response)
{
    const QString message = reply.value("message"_L1).toString();
    if (!message.isEmpty())
        return tr::Tr(message);
    if (response.errorCode > 0)
        return response.errorText;
    const QJsonValue result = reply.value("result"_L1);
    if (!result.isDouble())
        return tr::Tr(u"talloBonusReplyError"_s, u"Некорректный ответ сервера бонусов"_s);
    return tr::Tr(u"talloBonusRefusal"_s,
                  u"Сервер бонусов отклонил операцию, код %1"_s.arg(result.toDouble()));
}

} // namespace

TalloBonusClient::~TalloBonusClient() = default;

void TalloBonusClient::setTimeout(int seconds)
{
    timeout = std::chrono::seconds(seconds);
}

void TalloBonusClient::setTerminalId(const QString &id)
{
    terminalId = id;
}

void TalloBonusClient::setHosts(const QList<QUrl> &addresses)
{
    hosts = addresses;
}

void TalloBonusClient::checkAssets(const QString &parentSessionId)
{
    perform(u"checkAssets"_s, {{u"parentSessionId"_s, parentSessionId}});
}

void TalloBonusClient::back(const BonusCard &card, const SessionInfo &sessionInfo,
                            const BonusAssetGroup &assetGroup, const QString &parentSessionId,
                            bool fullReturn, bool isFinal)
{
    perform(u"back"_s, {{u"card"_s, jsonOf(card)},
                        {u"sessionInfo"_s, sessionInfo.toJson()},
                        {u"assetGroup"_s, jsonOf(assetGroup)},
                        {u"parentSessionId"_s, parentSessionId},
                        {u"fullReturn"_s, fullReturn},
                        {u"final"_s, isFinal}});
}

void TalloBonusClient::add(const QString &sessionId, const BonusCard &card,
                           const SessionInfo &sessionInfo, const BonusAssetGroup &assetGroup,
                           bool nonConfirm, bool isFinal)
{
    perform(u"add"_s, movement(sessionId, card, sessionInfo, assetGroup, nonConfirm, isFinal));
}

void TalloBonusClient::sub(const QString &sessionId, const BonusCard &card,
                           const SessionInfo &sessionInfo, const BonusAssetGroup &assetGroup,
                           bool nonConfirm, bool isFinal)
{
    perform(u"sub"_s, movement(sessionId, card, sessionInfo, assetGroup, nonConfirm, isFinal));
}

void TalloBonusClient::rollback(const QString &sessionId, bool flag, const QString &reason,
                                const QString &source)
{
    perform(u"rollback"_s, sessionEnd(sessionId, flag, reason, source));
}

void TalloBonusClient::commit(const QString &sessionId, bool flag, const QString &reason,
                              const QString &source)
{
    perform(u"commit"_s, sessionEnd(sessionId, flag, reason, source));
}

void TalloBonusClient::setAdditionalCardStatus(const BonusCard &card,
                                               const QString &additionalCardStatus, int cardStatus)
{
    perform(u"setAdditionalCardStatus"_s, {{u"card"_s, jsonOf(card)},
                                           {u"additionalCardStatus"_s, additionalCardStatus},
                                           {u"cardStatus"_s, cardStatus}});
}

void TalloBonusClient::setEndPoint(const QString &path)
{
    endPoint = path;
}

void TalloBonusClient::setUser(const QString &name)
{
    user = name;
}

void TalloBonusClient::setPassword(const QString &newPassword)
{
    password = newPassword;
}

void TalloBonusClient::perform(const QString &operation, QJsonObject arguments)
{
    if (hosts.isEmpty())
        fail(operation, tr::Tr(u"talloBonusNoHosts"_s, u"Не указаны адреса сервера бонусов"_s));
    arguments.insert(u"terminalId"_s, terminalId);

    const auto client = MockFactory<RestClient>::create();
    client->setLogger(logger());
    client->setTimeout(static_cast<int>(timeout.count()));
    for (const QUrl &host : hosts) {
        client->post(addressOf(host, operation), QJsonDocument(arguments),
                     headersFor(user, password));
        if (!client->isNetworkError())
            return judge(operation, client->response());
        logger()->warn(
            u"Сервер бонусов %1 недоступен: %2"_s.arg(shown(host), client->errorText().ru()));
    }
    fail(operation, client->errorText());
}

QUrl TalloBonusClient::addressOf(const QUrl &host, const QString &operation) const
{
    QStringList segments =
        (host.path(QUrl::PrettyDecoded) + u'/' + endPoint).split(u'/', Qt::SkipEmptyParts);
    segments.append(operation);
    QUrl address = host;
    address.setPath(u'/' + segments.join(u'/'), QUrl::TolerantMode);
    return address;
}

void TalloBonusClient::judge(const QString &operation, const http::Response &response)
{
    const QJsonObject reply = response.responseObject();
    const QJsonValue result = reply.value("result"_L1);
    const bool isClean = response.errorCode == 0;
    if (isClean && result.isDouble() && result.toDouble() == 0.0)
        return;
    const tr::Tr text = refusalText(reply, response);
    const QJsonValue critical = reply.value("critical"_L1);
    if (result.toDouble() > 0.0 && critical.isBool() && !critical.toBool())
        throw BonusUncriticalException(text);
    fail(operation, text);
}
