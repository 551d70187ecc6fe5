#include "handlers/payment/platiqr3handler.h"

#include "handlers/payment/platiqrflow.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

platiqr::PaidOperation paidOperation(const RestClient &client)
{
    const QJsonArray operations =
        client.responseJson().object().value(u"order_operation_params"_s).toArray();
    const QJsonObject operation = operations.at(0).toObject();
    return {operation.value(u"operation_id"_s).toString(),
            operation.value(u"auth_code"_s).toString()};
}

constexpr platiqr::Dialect dialect{
    .paidOperation = paidOperation,
    .isDeclinedFinal = true,
};

} // namespace

PlatiQR3Handler::PlatiQR3Handler()
    : BasicHandler(u"platiqr3"_s)
{
}

bool PlatiQR3Handler::sendMessage(const Message &message)
{
    return platiqr::undoOrder(*this, message, dialect);
}

QString PlatiQR3Handler::prepareCertificate(const QString &path, const QString &password)
{
    CertificateRules rules = platiqr::certificateRules();
    // Its certificates may use ciphers that the tool reads only with this option.
    rules.furtherArguments = {u"-legacy"_s};
    return convertCertificate(*logger(), path, password, rules).pem;
}

QString PlatiQR3Handler::requestToken(const QVariantMap &request, RestClient &client)
{
    return platiqr::requestToken(*this, request, client);
}

QString PlatiQR3Handler::tokenFromReply(const QVariant &reply)
{
    return platiqr::tokenFromReply(reply);
}

QString PlatiQR3Handler::stateFromReply(const QString &name, const QVariant &reply)
{
    return reply.toMap().value(name).toString();
}

bool PlatiQR3Handler::sendRequest(const QString &token, const QVariantMap &request,
                                  RestClient &client)
{
    return platiqr::sendRequest(token, request, client, *logger());
}
