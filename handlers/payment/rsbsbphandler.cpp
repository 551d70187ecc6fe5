#include "handlers/payment/rsbsbphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/payment/steadytime.h"
#include "shared/core/mockfactory.h"

#include <log4qt/logger.h>

#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr int doneCode = 0;
constexpr int missingCode = -999;
/// Final codes: a repetition of the refund would not change them.
constexpr std::array finalCodes{-54, -33, -32, -31, -30, -24, -23, -13, -5, 1};
/// Ends the poll at once.
constexpr int refusedCode = -23;
/// Success if one of them is the last answer of the poll; until then it may still change.
constexpr std::array lastCodesOfSuccess{doneCode, 1, -24};

template <typename Codes>
bool contains(const Codes &codes, int code)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

int codeFromReply(const RestClient &client)
{
    const QJsonObject reply = client.responseJson().object();
    const auto code = reply.constFind(u"code"_s);
    if (code == reply.constEnd())
        return missingCode;
    // A number or its text; any value that is not an integer gives 0.
    return code->toVariant().toString().toInt();
}

QString textFromReply(const RestClient &client)
{
    const QJsonObject reply = client.responseJson().object();
    const auto text = reply.constFind(u"message"_s);
    if (text != reply.constEnd())
        return text->toVariant().toString();
    return succeeded(client) ? u"Неизвестная ошибка"_s : client.errorText().ru();
}

/// Removes everything after the signature's Base64 block; the partner accepts only that.
void repairSignature(QVariantMap &body, Log4Qt::Logger &logger)
{
    static const QRegularExpression block(u"^[a-zA-Z0-9\\n+/]+={0,2}\\n"_s);
    const QString signature = body.value(u"msgSign"_s).toString();
    const QRegularExpressionMatch match = block.match(signature);
    if (!match.hasMatch() || match.capturedLength() == signature.size())
        return;
    logger.warn(u"Подменяем подпись\n%1\n\n===>\n\n%2"_s.arg(signature, match.captured()));
    body.insert(u"msgSign"_s, match.captured());
}

} // namespace

RsbSbpHandler::RsbSbpHandler()
    : BasicHandler(u"rsbsbp"_s)
{
}

bool RsbSbpHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    // Without a logger, so that the exchange with the bank is never logged.
    const auto client = MockFactory<RestClient>::create();
    client->setTimeout(messageValue<int>(message, u"timeout"_s));
    client->setCertificatePath(messageValue<QString>(message, u"certificatePath"_s));
    client->setPrivateKeyPath(messageValue<QString>(message, u"privateKeyPath"_s));

    const auto headers = messageHeaders(messageValue<QVariantMap>(message, u"headers"_s));
    auto refund = messageValue<QVariantMap>(message, u"bodyRefund"_s);
    repairSignature(refund, *logger());
    client->post(messageValue<QUrl>(message, u"urlRefund"_s), QJsonDocument::fromVariant(refund),
                 headers);
    if (client->errorCode() != http::timeoutError)
        return judgeRefund(*client);

    // The partner may have read the request, so its state is requested before the refund is
    // repeated.
    logger()->info(u"Запрашиваем статус возврата"_s);
    return pollRefundStatus(*client, messageValue<QUrl>(message, u"urlStatus"_s),
                            QJsonDocument::fromVariant(message.body.value(u"bodyStatus"_s)),
                            headers, messageValue<int>(message, u"duration"_s),
                            messageValue<int>(message, u"interval"_s));
}

bool RsbSbpHandler::pollRefundStatus(RestClient &client, const QUrl &url, const QJsonDocument &body,
                                     const RestClient::Headers &headers, int duration, int interval)
{
    const auto time = MockFactory<SteadyTime>::create();
    const SteadyTime::Moment start = time->now();
    // Already past at the first pause, so the second request follows at once.
    SteadyTime::Moment wakeUp = start;
    for (;;) {
        client.post(url, body, headers);
        const int code = codeFromReply(client);
        if (code == doneCode)
            return true;
        if (code == refusedCode)
            return keepByCode(client, code);
        time->sleepUntil(wakeUp);
        const SteadyTime::Moment now = time->now();
        wakeUp = now + std::chrono::milliseconds(interval);
        if (now - start < std::chrono::milliseconds(duration))
            continue;
        if (contains(lastCodesOfSuccess, code))
            return true;
        return keepByCode(client, code);
    }
}

bool RsbSbpHandler::judgeRefund(const RestClient &client)
{
    const int code = codeFromReply(client);
    if (succeeded(client) && code == doneCode)
        return true;
    if (client.isNetworkError()) {
        logger()->error(client.errorText().ru());
        return false;
    }
    const QString text = textFromReply(client);
    if (contains(finalCodes, code)) {
        logger()->warn(text);
        return giveUp(u"окончательный код банка %1, возврат не подтверждён"_s.arg(code));
    }
    logger()->error(text);
    return keepByCode(client, code);
}

bool RsbSbpHandler::keepByCode(const RestClient &client, int code)
{
    // For a failed exchange the client has the reason.
    if (!succeeded(client))
        return false;
    return keep(code == missingCode ? u"в ответе банка нет кода"_s
                                    : u"банк не сделал возврат, код %1"_s.arg(code));
}
