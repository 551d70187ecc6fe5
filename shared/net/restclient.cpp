#include "shared/net/restclient.h"

#include "shared/core/inflight.h"
#include "shared/net/addressfault.h"
#include "shared/net/curltransport.h"
#include "shared/net/exchangelog.h"
#include "shared/net/exchangeobserver.h"
#include "shared/net/headertext.h"
#include "shared/net/requestheaders.h"

#include <log4qt/logger.h>

#include <algorithm>
#include <chrono>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds defaultExchangeTimeout{30};

Exchange exchangeOf(const QByteArray &verb, const QUrl &url, http::HeaderList headers,
                    const QByteArray &body = {})
{
    Exchange exchange;
    exchange.verb = verb;
    exchange.url = url;
    exchange.headers = std::move(headers.lines);
    exchange.refusedHeaders = std::move(headers.refused);
    exchange.body = body;
    return exchange;
}

/// Adds the content type of JSON unless the caller gives another one.
Exchange exchangeOf(const QByteArray &verb, const QUrl &url, http::HeaderList headers,
                    const QJsonDocument &body)
{
    Exchange exchange =
        exchangeOf(verb, url, std::move(headers), body.toJson(QJsonDocument::Compact));
    if (!body.isNull() && !exchange.hasHeader("Content-Type"))
        exchange.headers.emplaceBack("Content-Type", "application/json");
    return exchange;
}

/// Why the request cannot be sent; empty if it can.
tr::Tr refusal(const Exchange &exchange)
{
    const tr::Tr fault = addressFault(exchange.url);
    if (!fault.isEmpty())
        return fault;
    if (!http::isToken(exchange.verb))
        return {u"networkErrorVerb"_s, u"Недопустимый метод запроса"_s};
    return {};
}

} // namespace

RestClient::RestClient(QObject *parent)
    : QObject(parent)
{
}

RestClient::~RestClient() = default;

void RestClient::request(int verb, const QUrl &url, const QJsonDocument &body,
                         const Headers &headers)
{
    // The index of a verb is its number in QNetworkAccessManager::Operation.
    static const QList<QByteArray> verbs = {"", "HEAD", "GET", "PUT", "POST", "DELETE"};
    const QByteArray name = verbs.value(verb);
    const bool isBodyless = name == "GET" || name == "HEAD";
    perform(exchangeOf(name, url, http::headerList(headers), isBodyless ? QJsonDocument() : body));
}

void RestClient::get(const QUrl &url, const QJsonDocument & /*body*/, const Headers &headers)
{
    perform(exchangeOf("GET", url, http::headerList(headers)));
}

void RestClient::send(const http::Params &params)
{
    Exchange exchange =
        exchangeOf(params.verb(), params.url, http::headerList(params.headers), params.body);
    if (!params.parts.isEmpty()) {
        exchange.body.clear();
        // libcurl adds the content type itself, since only libcurl knows the boundary.
        exchange.headers.removeIf([](const auto &header) {
            return header.first.compare("Content-Type", Qt::CaseInsensitive) == 0;
        });
    }
    exchange.parts = params.parts;
    perform(std::move(exchange));
}

void RestClient::post(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    perform(exchangeOf("POST", url, http::headerList(headers), body));
}

void RestClient::post(const QUrl &url, const QJsonDocument &body, const Headers &headers)
{
    perform(exchangeOf("POST", url, http::headerList(headers), body));
}

void RestClient::put(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    perform(exchangeOf("PUT", url, http::headerList(headers), body));
}

int RestClient::errorCode() const
{
    return response_.errorCode;
}

int RestClient::statusCode() const
{
    return response_.status;
}

tr::Tr RestClient::errorText() const
{
    return response_.errorText;
}

QVariant RestClient::responseVariant() const
{
    const QJsonDocument document = responseJson();
    return document.isNull() ? QVariant() : document.toVariant();
}

QJsonDocument RestClient::responseJson() const
{
    return http::parseReply(response_.body);
}

QByteArray RestClient::responseBody() const
{
    return response_.body;
}

void RestClient::setTimeout(int seconds)
{
    setTimeoutMs(qint64{seconds} * 1000);
}

void RestClient::setTimeoutMs(qint64 milliseconds)
{
    timeout = std::chrono::milliseconds(milliseconds);
}

void RestClient::setCertificatePath(const QString &path)
{
    certificatePath = path;
}

void RestClient::setCertificatePassword(const QString &password)
{
    certificatePassword = password;
}

void RestClient::setPrivateKeyPath(const QString &path)
{
    privateKeyPath = path;
}

bool RestClient::hasResponse() const
{
    return response_.status > 0 && !response_.networkError;
}

bool RestClient::isNetworkError() const
{
    return response_.networkError;
}

http::Response RestClient::response() const
{
    return response_;
}

void RestClient::setSecretHeaders(const QStringList &names)
{
    secretHeaders = names;
}

void RestClient::setLogger(Log4Qt::Logger *logger)
{
    logger_ = logger;
}

void RestClient::setCompactLogs(bool compact)
{
    compactLogs = compact;
}

void RestClient::perform(Exchange exchange)
{
    using std::chrono::milliseconds;
    constexpr milliseconds longest{std::numeric_limits<int>::max()};
    exchange.timeout =
        timeout > milliseconds::zero() ? std::min(timeout, longest) : defaultExchangeTimeout;
    exchange.certificatePath = certificatePath;
    exchange.certificatePassword = certificatePassword;
    exchange.privateKeyPath = privateKeyPath;
    for (http::Part &part : exchange.parts)
        http::makeSendable(part, exchange.refusedHeaders);
    const bool isLogged = logger_ && logger_->isDebugEnabled();
    exchange.keepHeaders = isLogged && !compactLogs;

    if (logger_ && !exchange.refusedHeaders.isEmpty())
        logger_->warn(exchangelog::refusedHeadersText(exchange.refusedHeaders));
    if (isLogged)
        logRequest(exchange);
    const auto begin = std::chrono::steady_clock::now();

    const inflight::CallGuard guard{exchange.timeout};
    const tr::Tr reason = refusal(exchange);
    const ExchangeOutcome outcome = reason.isEmpty()
                                        ? performExchange(exchange)
                                        : ExchangeOutcome{.response = http::Response::failed(
                                                              http::unusableRequestError, reason)};
    endExchange(outcome, exchange.url);

    if (isLogged)
        logOutcome(outcome, std::chrono::duration_cast<milliseconds>(
                                std::chrono::steady_clock::now() - begin));
}

void RestClient::endExchange(const http::Response &response, const QUrl &url)
{
    endExchange(ExchangeOutcome{.response = response}, url);
}

void RestClient::endExchange(const ExchangeOutcome &outcome, const QUrl &url)
{
    response_ = outcome.response;
    http::tellObserver({.kind = response_.kind(),
                        .status = response_.status,
                        .text = response_.errorText.ru(),
                        .path = url.path(),
                        .host = url.host(),
                        .certificatePath = outcome.certificatePath,
                        .certificateEnd = outcome.certificateEnd,
                        .clockDifference = outcome.clockDifference});
}

void RestClient::logRequest(const Exchange &exchange) const
{
    const qsizetype partCount = exchange.parts.size();
    const QString line = u"Запрос %1 %2, байт: %3%4"_s.arg(
        QString::fromUtf8(exchange.verb), exchangelog::addressText(exchange.url),
        QString::number(exchange.body.size()),
        partCount ? u", частей: %1"_s.arg(partCount) : QString());
    if (compactLogs) {
        logger_->debug(line);
        return;
    }
    QList<QByteArray> lines;
    for (const auto &[name, value] : exchange.headers)
        lines.append(name + ": " + value);
    logger_->debug(u"%1; заголовки: [%2]; тело: %3"_s.arg(line, loggedHeaders(lines, 0),
                                                          exchangelog::excerpt(exchange.body)));
}

void RestClient::logOutcome(const ExchangeOutcome &outcome, std::chrono::milliseconds elapsed) const
{
    const http::Response &response = outcome.response;
    const QString status =
        response.networkError ? response.errorText.ru() : QString::number(response.status);
    const QString line = u"Ответ: %1, мс: %2, байт: %3"_s.arg(
        status, QString::number(elapsed.count()), QString::number(response.body.size()));
    if (compactLogs) {
        logger_->debug(line);
        return;
    }
    logger_->debug(u"%1; заголовки: [%2]; тело: %3"_s.arg(
        line, loggedHeaders(outcome.headerLines, outcome.omittedHeaderBytes),
        exchangelog::excerpt(response.body)));
}

QString RestClient::loggedHeaders(const QList<QByteArray> &lines, qsizetype omittedBytes) const
{
    return exchangelog::headersText(lines, omittedBytes, secretHeaders);
}
