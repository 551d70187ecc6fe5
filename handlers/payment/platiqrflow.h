#pragma once

#include "handlers/common/certificates.h"
#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"

#include <log4qt/logger.h>

/// Cancels an order at Плати QR. The message contains every request that may be needed, each as a
/// map of `url`, `headers` and `data`. The order's state decides which requests are sent; each
/// needs a token of its own.
///
/// No state is kept between attempts: each begins with the order's state at the service. So after a
/// lost reply to a cancellation the next attempt finds the order cancelled and does not repeat it.
namespace platiqr {

/// The data of a payment that a cancellation must contain.
struct PaidOperation
{
    QString operationId;
    QString authCode;
};

/// The differences between versions of the service's interface.
struct Dialect
{
    /// Reads the payment from the client's latest reply, that of the status request. Missing values
    /// are empty.
    PaidOperation (*paidOperation)(const RestClient &client);
    /// A declined order drops the message.
    bool isDeclinedFinal;
};

/// How certificates for the service are converted. Both handlers use the same file name, so that a
/// certificate is converted once.
CertificateRules certificateRules();

enum class NextStep
{
    Revoke,
    Cancel,
    /// The order is cancelled already.
    Nothing,
    /// It was never paid and never will be.
    GiveUp,
    Unknown,
};

NextStep nextStep(const QString &state, const Dialect &dialect);

QString tokenFromReply(const QVariant &reply);

/// Posts `request` unchanged. False if it was not delivered, which is logged.
bool post(const QVariantMap &request, RestClient &client, Log4Qt::Logger &logger);

/// Posts `request` with `token` and the current time inserted.
bool sendRequest(const QString &token, const QVariantMap &request, RestClient &client,
                 Log4Qt::Logger &logger);

/// The message's request `orderCancel` with the payment's data inserted.
QVariantMap cancelRequest(const Message &message, const PaidOperation &operation);

/// The token that `request` returns. Empty on failure, which is logged.
template <typename Handler>
QString requestToken(Handler &handler, const QVariantMap &request, RestClient &client)
{
    using namespace Qt::StringLiterals;
    if (!post(request, client, *handler.logger()))
        return {};
    const QString token = handler.tokenFromReply(client.responseVariant());
    if (token.isEmpty()) {
        handler.logger()->error(u"Ошибка при авторизации в Плати QR"_s);
        handler.keep(u"сервис не выдал токен"_s, http::FailureKind::Credentials);
    }
    return token;
}

/// Sends `request` with a token that the message's request `tokenKey` returns.
template <typename Handler>
bool performStep(Handler &handler, const Message &message, const QString &tokenKey,
                 const QVariantMap &request, RestClient &client)
{
    const QString token =
        handler.requestToken(messageValue<QVariantMap>(message, tokenKey), client);
    return !token.isEmpty() && handler.sendRequest(token, request, client);
}

template <typename Handler>
bool useCertificate(Handler &handler, const Message &message, RestClient &client)
{
    using namespace Qt::StringLiterals;
    const auto password = messageValue<QString>(message, u"certificatePassword"_s);
    const QString pem =
        handler.prepareCertificate(messageValue<QString>(message, u"certificatePath"_s), password);
    if (pem.isEmpty())
        return handler.keep(u"нет сертификата для соединения"_s, http::FailureKind::Certificate);
    client.setCertificatePath(pem);
    // The PEM file has the same password as its source.
    client.setCertificatePassword(password);
    return true;
}

/// For an unpaid order.
template <typename Handler>
bool revokeOrder(Handler &handler, const Message &message, RestClient &client)
{
    using namespace Qt::StringLiterals;
    if (!performStep(handler, message, u"orderRevokeToken"_s,
                     messageValue<QVariantMap>(message, u"orderRevoke"_s), client))
        return false;
    const QString state = handler.stateFromReply(u"order_state"_s, client.responseVariant());
    if (state == u"REVOKED")
        return true;
    return handler.keep(u"заказ не отозван, его состояние: %1"_s.arg(shownWord(state)));
}

/// For a paid order.
template <typename Handler>
bool cancelOrder(Handler &handler, const Message &message, const Dialect &dialect,
                 RestClient &client)
{
    using namespace Qt::StringLiterals;
    // The payment's data is in the status reply, which the token's reply will replace in the
    // client.
    const QVariantMap request = cancelRequest(message, dialect.paidOperation(client));
    if (!performStep(handler, message, u"orderCancelToken"_s, request, client))
        return false;
    // The reply to a cancellation has the state under `order_status`, all others under
    // `order_state`.
    const QString status = handler.stateFromReply(u"order_status"_s, client.responseVariant());
    if (status == u"REFUNDED" || status == u"REVERSED")
        return true;
    return handler.keep(u"заказ не отменён, его состояние: %1"_s.arg(shownWord(status)));
}

/// One delivery. True if the order is cancelled, now or earlier, or the message is dropped.
template <typename Handler>
bool undoOrder(Handler &handler, const Message &message, const Dialect &dialect)
{
    using namespace Qt::StringLiterals;
    handler.logger()->info(u"Отправка сообщения"_s);
    const auto client = createClient(*handler.logger());
    client->setTimeout(messageValue<int>(message, u"timeout"_s));
    if (!useCertificate(handler, message, *client)
        || !performStep(handler, message, u"orderStatusToken"_s,
                        messageValue<QVariantMap>(message, u"orderStatus"_s), *client))
        return false;

    const QString state = handler.stateFromReply(u"order_state"_s, client->responseVariant());
    switch (nextStep(state, dialect)) {
    case NextStep::Revoke:
        return revokeOrder(handler, message, *client);
    case NextStep::Cancel:
        return cancelOrder(handler, message, dialect, *client);
    case NextStep::Nothing:
        return handler.doneBefore(u"заказ уже отменён, его состояние: %1"_s.arg(shownWord(state)));
    case NextStep::GiveUp:
        return handler.giveUp(u"заказ отклонён, отмены не было"_s);
    case NextStep::Unknown:
        break;
    }
    handler.logger()->error(u"Необрабатываемый статус заказа: %1"_s, state);
    return handler.keep(u"необрабатываемое состояние заказа: %1"_s.arg(shownWord(state)));
}

} // namespace platiqr
