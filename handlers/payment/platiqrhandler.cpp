#include "handlers/payment/platiqrhandler.h"

#include "handlers/payment/platiqrflow.h"

using namespace Qt::StringLiterals;

namespace {

QVariantMap statusOf(const QVariant &reply)
{
    return reply.toMap().value(u"status"_s).toMap();
}

platiqr::PaidOperation paidOperation(const RestClient &client)
{
    const QVariantList operations =
        statusOf(client.responseVariant()).value(u"order_operation_params"_s).toList();
    // Without an operation both are empty, and the service decides.
    const QVariantMap operation = operations.value(0).toMap();
    return {operation.value(u"operation_id"_s).toString(),
            operation.value(u"auth_code"_s).toString()};
}

constexpr platiqr::Dialect dialect{
    .paidOperation = paidOperation,
    .isDeclinedFinal = false,
};

} // namespace

PlatiQRHandler::PlatiQRHandler()
    : BasicHandler(u"platiqr"_s)
{
}

bool PlatiQRHandler::sendMessage(const Message &message)
{
    return platiqr::undoOrder(*this, message, dialect);
}

QString PlatiQRHandler::prepareCertificate(const QString &path, const QString &password)
{
    return convertCertificate(*logger(), path, password, platiqr::certificateRules()).pem;
}

QString PlatiQRHandler::requestToken(const QVariantMap &request, RestClient &client)
{
    return platiqr::requestToken(*this, request, client);
}

QString PlatiQRHandler::tokenFromReply(const QVariant &reply)
{
    return platiqr::tokenFromReply(reply);
}

QString PlatiQRHandler::stateFromReply(const QString &name, const QVariant &reply)
{
    return statusOf(reply).value(name).toString();
}

bool PlatiQRHandler::sendRequest(const QString &token, const QVariantMap &request,
                                 RestClient &client)
{
    return platiqr::sendRequest(token, request, client, *logger());
}
