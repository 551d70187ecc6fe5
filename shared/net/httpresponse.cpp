#include "shared/net/httpresponse.h"

#include "shared/core/largedocuments.h"

#include <log4qt/logmanager.h>

using namespace Qt::StringLiterals;

namespace http {

QJsonObject Response::responseObject() const
{
    return parseReply(body).object();
}

QJsonDocument parseReply(const QByteArray &body)
{
    const auto refused = [](const QString &reason) {
        Log4Qt::LogManager::logger(u"http"_s)->error(u"Ответ JSON не принят: %1"_s, reason);
        return QJsonDocument();
    };
    if (body.size() > maxReplyBytes)
        return refused(
            u"размер %1 байт, допускается не более %2"_s.arg(body.size()).arg(maxReplyBytes));
    noteLargeDocument(body.size());
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    return error.error == QJsonParseError::DeepNesting ? refused(u"слишком глубокая вложенность"_s)
                                                       : document;
}

bool Response::isTooLarge() const
{
    return body.size() > maxReplyBytes;
}

Response Response::answered(int status, const QByteArray &body)
{
    Response response;
    response.status = status;
    response.errorCode = errorOfStatus(status);
    response.failure = kindOfStatus(status);
    if (response.errorCode != 0)
        response.errorText = tr::Tr(u"networkErrorStatus"_s,
                                    u"Сервер ответил ошибкой, код состояния HTTP %1"_s.arg(status));
    response.body = body;
    return response;
}

Response Response::failed(int errorCode, const tr::Tr &errorText, int status)
{
    return failed(errorCode, errorText, status, failureKind(errorCode));
}

Response Response::failed(int errorCode, const tr::Tr &errorText, int status, FailureKind kind)
{
    Response response;
    response.status = status;
    response.errorText = errorText;
    response.errorCode = errorCode;
    response.failure = kind;
    response.networkError = true;
    return response;
}

} // namespace http
