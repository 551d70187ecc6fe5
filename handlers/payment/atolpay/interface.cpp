#include "handlers/payment/atolpay/interface.h"

#include "handlers/common/delivery.h"
#include "handlers/common/replyword.h"
#include "handlers/payment/atolpay/settings.h"
#include "shared/core/currenttime.h"
#include "shared/core/mockfactory.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>

using namespace Qt::StringLiterals;

namespace atolpay {

namespace {

AtolPayTransactionStatus transactionStatus(const QString &text)
{
    using enum AtolPayTransactionStatus;
    static constexpr KnownWord<AtolPayTransactionStatus> statuses[] = {
        {u"IN_PROGRESS", InProgress},
        {u"COMPLETED", Completed},
        {u"ERROR", Error},
        {u"REFUNDED", Refunded},
        {u"REFUND_IN_PROGRESS", RefundInProgress},
        {u"PARTIAL_REFUNDED", PartialRefunded},
        {u"EXPIRED", Expired},
    };
    return meaningOf(text.toUpper(), statuses, Unknown);
}

QString replyText(const QJsonObject &reply, const QString &member)
{
    return reply.value(member).toString();
}

QString dataText(const QJsonObject &reply, const QString &member)
{
    return replyText(reply.value(u"data"_s).toObject(), member);
}

bool isSuccess(const QJsonObject &reply)
{
    return replyText(reply, u"status"_s) == u"success";
}

QString failureMessage(const QJsonObject &reply)
{
    const QString message = replyText(reply, u"errorMessage"_s);
    return message.isEmpty() ? u"Ошибка связи с сервером"_s : message;
}

} // namespace

Interface::Interface()
    : timeout(settings::atolpay::timeout.defaultValue)
    , logger(Log4Qt::LogManager::logger(u"atolpay"_s))
{
}

Interface::~Interface() = default;

AtolPayRegisterResult Interface::register_(const QString &purpose, qint64 amount)
{
    const qint64 now = MockFactory<CurrentTime>::create()->currentDateTime().toMSecsSinceEpoch();
    QJsonObject request{
        {u"amount"_s, amount},
        {u"currency"_s, currency},
        {u"orderId"_s, u"%1_register%2"_s.arg(purpose, QString::number(now))},
        {u"paymentPurpose"_s, purpose},
        {u"qrcType"_s, u"QR-Dynamic"_s},
    };
    if (!rmkId.isEmpty())
        request.insert(u"rmkId"_s, rmkId);

    const QJsonObject reply = exchange(u"register"_s, request);
    AtolPayRegisterResult result;
    result.success = isSuccess(reply);
    if (!result.success) {
        result.message = failureMessage(reply);
        return result;
    }
    result.payload = dataText(reply, u"payload"_s);
    result.transactionId = dataText(reply, u"transactionId"_s);
    result.message = dataText(reply, u"message"_s);
    return result;
}

AtolPayRefundResult Interface::refund(const QString &documentId, const QString &transactionId,
                                      qint64 amount)
{
    // The system clock rather than CurrentTime, which tests can stop: two attempts must not share
    // an identifier.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const QJsonObject request{
        {u"amount"_s, amount},
        {u"orderId"_s, u"%1_refund%2"_s.arg(documentId, QString::number(now))},
        {u"transactionId"_s, transactionId},
    };
    const QJsonObject reply = exchange(u"refund"_s, request);
    AtolPayRefundResult result;
    result.success = isSuccess(reply);
    result.noReply = reply.isEmpty();
    if (result.success)
        result.transactionId = dataText(reply, u"transactionId"_s);
    else
        result.message = failureMessage(reply);
    return result;
}

AtolPayStatusResult Interface::status(const QString &transactionId)
{
    logger->info(u"Получение статуса транакции: %1"_s, transactionId);
    const QJsonObject reply = exchange(u"status"_s, {{u"transactionId"_s, transactionId}});
    AtolPayStatusResult result;
    result.status = transactionStatus(dataText(reply, u"status"_s));
    result.success = result.status == AtolPayTransactionStatus::Completed;
    result.noReply = reply.isEmpty();
    return result;
}

void Interface::loadSettings()
{
    url = QUrl(settings::atolpay::url.value());
    token = settings::atolpay::token.value();
    currency = settings::atolpay::currency.value();
    rmkId = settings::atolpay::rmkId.value();
    timeout = settings::atolpay::timeout.valueOr(std::chrono::seconds(timeout)).count();
}

QJsonObject Interface::exchange(const QString &operation, const QJsonObject &request)
{
    const auto client = createClient(*logger);
    client->setTimeoutMs(std::chrono::milliseconds(std::chrono::seconds(timeout)).count());
    client->post(url.resolved(QUrl(operation)), QJsonDocument(request),
                 {{u"Authorization"_s, u"Bearer %1"_s.arg(token)},
                  {u"Content-Type"_s, u"application/json"_s}});
    return succeeded(*client) ? client->responseJson().object() : QJsonObject();
}

} // namespace atolpay
