#include "handlers/payment/platiqrflow.h"

#include "shared/core/currenttime.h"
#include "shared/core/mockfactory.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace platiqr {

namespace {

bool post(const QVariantMap &request, const QByteArray &data,
          const QHash<QString, QString> &headers, RestClient &client, Log4Qt::Logger &logger)
{
    client.post(QUrl(request.value(u"url"_s).toString()), data, headers);
    return succeeded(client, logger);
}

QByteArray requestData(const QVariantMap &request)
{
    return request.value(u"data"_s).toByteArray();
}

QHash<QString, QString> requestHeaders(const QVariantMap &request)
{
    return messageHeaders(request.value(u"headers"_s).toMap());
}

} // namespace

CertificateRules certificateRules()
{
    return {.fileName = u"queue_platiqr_%1"_s};
}

NextStep nextStep(const QString &state, const Dialect &dialect)
{
    if (state == u"CREATED")
        return NextStep::Revoke;
    if (state == u"PAID")
        return NextStep::Cancel;
    if (state == u"REFUNDED" || state == u"REVERSED" || state == u"REVOKED")
        return NextStep::Nothing;
    if (state == u"DECLINED" && dialect.isDeclinedFinal)
        return NextStep::GiveUp;
    return NextStep::Unknown;
}

QString tokenFromReply(const QVariant &reply)
{
    return reply.toMap().value(u"access_token"_s).toString();
}

bool post(const QVariantMap &request, RestClient &client, Log4Qt::Logger &logger)
{
    return post(request, requestData(request), requestHeaders(request), client, logger);
}

bool sendRequest(const QString &token, const QVariantMap &request, RestClient &client,
                 Log4Qt::Logger &logger)
{
    QHash<QString, QString> headers = requestHeaders(request);
    // A request without this header gets an empty one.
    headers[u"authorization"_s].replace(u"{token}"_s, token);

    // Local time; the service requires the Z, which is not a time zone here.
    const QString now = MockFactory<CurrentTime>::create()->currentDateTime().toString(
        u"yyyy-MM-dd'T'hh:mm:ss'Z'"_s);
    return post(request, requestData(request).replace("{rq_tm}", now.toUtf8()), headers, client,
                logger);
}

QVariantMap cancelRequest(const Message &message, const PaidOperation &operation)
{
    auto request = messageValue<QVariantMap>(message, u"orderCancel"_s);
    QJsonObject data = QJsonDocument::fromJson(requestData(request)).object();
    data.insert(u"operation_id"_s, operation.operationId);
    data.insert(u"auth_code"_s, operation.authCode);
    request.insert(u"data"_s, QJsonDocument(data).toJson(QJsonDocument::Compact));
    return request;
}

} // namespace platiqr
