#pragma once

#include "handlers/common/certificates.h"
#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"

#include <log4qt/logger.h>

/// How an order at Плати QR is undone. The till has prepared every request that may be needed and
/// put them into the message, each as a map of `url`, `headers` and `data`; the order's state
/// decides which of them go out, each under a token of its own.
///
/// The order's state at the service is all there is to know: every attempt begins with it, so a
/// cancellation whose reply was lost is seen to have been made, and is not made twice.
namespace platiqr {

/// What a cancellation has to name of the payment.
struct PaidOperation
{
    QString operationId;
    QString authCode;
};

/// Where the versions of the service's interface differ.
struct Dialect
{
    /// Reads the payment from the status reply, the latest one that the client holds. What the
    /// reply does not tell is empty.
    PaidOperation (*paidOperation)(const RestClient &client);
    /// A declined order is given up.
    bool isDeclinedFinal;
};

/// How certificates for the service are converted. The file's name is the same for both handlers,
/// so a certificate is converted once.
CertificateRules certificateRules();

enum class NextStep
{
    Revoke,
    Cancel,
    /// The order is undone already.
    Nothing,
    /// It was never paid and never will be.
    GiveUp,
    Unknown,
};

NextStep nextStep(const QString &state, const Dialect &dialect);

/// The token in a parsed reply.
QString tokenFromReply(const QVariant &reply);

/// Posts `request` as it stands. False, with a line in the log, when it was not delivered.
bool post(const QVariantMap &request, RestClient &client, Log4Qt::Logger &logger);

/// Posts `request` with `token` and the present time in their places.
bool sendRequest(const QString &token, const QVariantMap &request, RestClient &client,
                 Log4Qt::Logger &logger);

/// The message's request `orderCancel` with the payment written into its data.
QVariantMap cancelRequest(const Message &message, const PaidOperation &operation);

/// The token that `request` obtains. Empty, with a line in the log, when there is none.
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

/// Sends `request` under a token that the message's request `tokenKey` obtains.
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
    // The PEM file is protected by the password of the file that it was made from.
    client.setCertificatePassword(password);
    return true;
}

/// For an order that was not paid.
template <typename Handler>
bool revokeOrder(Handler &handler, const Message &message, RestClient &client)
{
    using namespace Qt::StringLiterals;
    if (!performStep(handler, message, u"orderRevokeToken"_s,
                     messageValue<QVariantMap>(message, u"orderRevoke"_s), client))
        return false;
    const QString state = handler.stateFromReply(u"order_state"_s, client.responseVariant());
    return state == u"REVOKED"
           || handler.keep(u"заказ не отозван, его состояние: %1"_s.arg(shownWord(state)));
}

/// For an order that was paid.
template <typename Handler>
bool cancelOrder(Handler &handler, const Message &message, const Dialect &dialect,
                 RestClient &client)
{
    using namespace Qt::StringLiterals;
    // The payment stands in the status reply, which the token request replaces.
    const QVariantMap request = cancelRequest(message, dialect.paidOperation(client));
    if (!performStep(handler, message, u"orderCancelToken"_s, request, client))
        return false;
    // The service calls the state of a cancelled order `order_status`, everywhere else
    // `order_state`.
    const QString status = handler.stateFromReply(u"order_status"_s, client.responseVariant());
    return status == u"REFUNDED" || status == u"REVERSED"
           || handler.keep(u"заказ не отменён, его состояние: %1"_s.arg(shownWord(status)));
}

/// One delivery. True when the order is undone, was undone before, or is given up.
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
