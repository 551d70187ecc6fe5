#include "shared/net/restclient.h"

#include "shared/core/inflight.h"
#include "shared/net/addressfault.h"
#include "shared/net/curltransport.h"
#include "shared/net/exchangeobserver.h"

#include <log4qt/logger.h>

#include <QUrlQuery>

#include <algorithm>
#include <chrono>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds defaultTimeout{30};
constexpr qsizetype maxLoggedSize = 4096;

/// The headers of a request as they go out, and the names of those that must not.
struct HeaderList
{
    QList<std::pair<QByteArray, QByteArray>> lines;
    QByteArrayList refused;
};

bool isSame(const QByteArray &name, const char *other)
{
    return name.compare(other, Qt::CaseInsensitive) == 0;
}

/// A word as HTTP allows it for verbs and header names.
bool isToken(const QByteArray &text)
{
    return !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](char symbol) {
        return (symbol >= 'a' && symbol <= 'z') || (symbol >= 'A' && symbol <= 'Z')
               || (symbol >= '0' && symbol <= '9')
               || QByteArrayView("!#$%&'*+-.^_`|~").contains(symbol);
    });
}

/// One line, so that a value cannot bring in headers of its own.
QByteArray oneLine(QByteArray value)
{
    for (char &symbol : value) {
        if (symbol == '\r' || symbol == '\n' || symbol == '\0')
            symbol = ' ';
    }
    return std::move(value).trimmed();
}

/// What follows from the body is said by the client. A till may have prepared a request for other
/// bytes than those that go out.
bool followsFromBody(const QByteArray &name)
{
    return isSame(name, "Content-Length") || isSame(name, "Transfer-Encoding")
           || isSame(name, "Expect");
}

void append(HeaderList &list, const QByteArray &name, const QByteArray &value)
{
    if (!isToken(name))
        list.refused.append(name);
    else if (!followsFromBody(name))
        list.lines.append({name, oneLine(value)});
}

/// Most requests of a worker have the headers of the one before.
HeaderList headerList(const RestClient::Headers &headers)
{
    static thread_local RestClient::Headers lastHeaders;
    static thread_local HeaderList lastList;
    if (headers != lastHeaders) {
        lastList = {};
        for (auto it = headers.cbegin(); it != headers.cend(); ++it)
            append(lastList, it.key().toUtf8(), it.value().toUtf8());
        lastHeaders = headers;
    }
    return lastList;
}

HeaderList headerList(const QMap<QByteArray, QByteArray> &headers)
{
    HeaderList list;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        append(list, it.key(), it.value());
    return list;
}

/// Leaves what may go out; the names of other headers are added to `refused`.
void makeSendable(http::Part &part, QByteArrayList &refused)
{
    part.contentType = oneLine(part.contentType);
    const HeaderList list = headerList(std::exchange(part.headers, {}));
    for (const auto &[name, value] : list.lines)
        part.headers.insert(name, value);
    refused += list.refused;
}

Exchange exchangeOf(const QByteArray &verb, const QUrl &url, HeaderList headers,
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

/// With the type that a JSON document has, unless the caller says otherwise.
Exchange exchangeOf(const QByteArray &verb, const QUrl &url, HeaderList headers,
                    const QJsonDocument &body)
{
    Exchange exchange =
        exchangeOf(verb, url, std::move(headers), body.toJson(QJsonDocument::Compact));
    if (!body.isNull() && !exchange.hasHeader("Content-Type"))
        exchange.headers.emplaceBack("Content-Type", "application/json");
    return exchange;
}

/// The first bytes as a text on one line, since a log has one line for one event. `omitted` bytes
/// were left out behind them before.
QString excerpt(const QByteArray &bytes, qsizetype omitted = 0)
{
    QByteArray start = bytes.left(maxLoggedSize);
    if (start.size() < bytes.size()) {
        // Not in the middle of a letter.
        while (!start.isEmpty() && (bytes.at(start.size()) & 0xC0) == 0x80)
            start.chop(1);
    }
    QString text = QString::fromUtf8(start);
    text.replace(u"\r\n"_s, u"\\n"_s).replace(u'\n', u"\\n"_s);
    for (QChar &symbol : text) {
        if (symbol.category() == QChar::Other_Control)
            symbol = u'.';
    }
    const qsizetype total = bytes.size() + omitted;
    return start.size() == total ? text : text + u"… (всего байт: %1)"_s.arg(total);
}

/// A till's message may bring a header or a query of its own with the key of a service in it; the
/// name gives it away.
bool isSecretName(const QString &name)
{
    static const QStringList marks = {u"password"_s, u"passwd"_s,        u"token"_s,
                                      u"secret"_s,   u"api-key"_s,       u"api_key"_s,
                                      u"apikey"_s,   u"authorization"_s, u"cookie"_s};
    static const QStringList words = {u"pwd"_s, u"pass"_s};
    return words.contains(name, Qt::CaseInsensitive)
           || std::any_of(marks.cbegin(), marks.cend(), [&name](const QString &mark) {
                  return name.contains(mark, Qt::CaseInsensitive);
              });
}

QUrl withoutSecrets(QUrl url)
{
    if (!url.password().isEmpty())
        url.setPassword(u"***"_s);
    if (!url.hasQuery())
        return url;
    auto items = QUrlQuery(url).queryItems(QUrl::FullyEncoded);
    bool isMasked = false;
    for (auto &[name, value] : items) {
        if (isSecretName(name)) {
            value = u"***"_s;
            isMasked = true;
        }
    }
    if (isMasked) {
        QUrlQuery query;
        query.setQueryItems(items);
        url.setQuery(query);
    }
    return url;
}

QString loggedUrl(const QUrl &url)
{
    return QString::fromUtf8(withoutSecrets(url).toEncoded());
}

/// The name of a header that HTTP does not allow, as the log may show it: up to where a value may
/// begin, since a till may have put a whole line into the name.
QString shownName(const QByteArray &name)
{
    constexpr qsizetype maxShownSize = 64;
    const QString text = QString::fromUtf8(name);
    qsizetype size = 0;
    while (size < std::min(text.size(), maxShownSize) && text.at(size).isPrint()
           && !u" :;=,"_s.contains(text.at(size)))
        ++size;
    return size < text.size() ? text.first(size) + u'…' : text;
}

QString refusedHeadersText(const QByteArrayList &names)
{
    constexpr qsizetype maxShown = 10;
    QStringList shown;
    for (const QByteArray &name : names.first(std::min(names.size(), maxShown)))
        shown.append(u'\'' + shownName(name) + u'\'');
    if (names.size() > maxShown)
        shown.append(u"…"_s);
    return u"Заголовки с недопустимыми именами не отправлены (%1): %2"_s.arg(
        QString::number(names.size()), shown.join(u", "_s));
}

/// Why the request cannot go out as it is; nothing when it can.
tr::Tr refusal(const Exchange &exchange)
{
    const tr::Tr fault = addressFault(exchange.url);
    if (!fault.isEmpty())
        return fault;
    if (!isToken(exchange.verb))
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
    // The place of a verb is its number in QNetworkAccessManager::Operation.
    static const QList<QByteArray> verbs = {"", "HEAD", "GET", "PUT", "POST", "DELETE"};
    const QByteArray name = verbs.value(verb);
    const bool isBodyless = name == "GET" || name == "HEAD";
    perform(exchangeOf(name, url, headerList(headers), isBodyless ? QJsonDocument() : body));
}

void RestClient::get(const QUrl &url, const QJsonDocument & /*body*/, const Headers &headers)
{
    perform(exchangeOf("GET", url, headerList(headers)));
}

void RestClient::send(const http::Params &params)
{
    Exchange exchange =
        exchangeOf(params.verb(), params.url, headerList(params.headers), params.body);
    if (!params.parts.isEmpty()) {
        exchange.body.clear();
        // Only libcurl knows the boundary that the type names.
        exchange.headers.removeIf(
            [](const auto &header) { return isSame(header.first, "Content-Type"); });
    }
    exchange.parts = params.parts;
    perform(std::move(exchange));
}

void RestClient::post(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    perform(exchangeOf("POST", url, headerList(headers), body));
}

void RestClient::post(const QUrl &url, const QJsonDocument &body, const Headers &headers)
{
    perform(exchangeOf("POST", url, headerList(headers), body));
}

void RestClient::put(const QUrl &url, const QByteArray &body, const Headers &headers)
{
    perform(exchangeOf("PUT", url, headerList(headers), body));
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
    exchange.timeout = timeout > milliseconds::zero() ? std::min(timeout, longest) : defaultTimeout;
    exchange.certificatePath = certificatePath;
    exchange.certificatePassword = certificatePassword;
    exchange.privateKeyPath = privateKeyPath;
    for (http::Part &part : exchange.parts)
        makeSendable(part, exchange.refusedHeaders);
    const bool isLogged = logger_ && logger_->isDebugEnabled();
    exchange.keepHeaders = isLogged && !compactLogs;

    if (logger_ && !exchange.refusedHeaders.isEmpty())
        logger_->warn(refusedHeadersText(exchange.refusedHeaders));
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
    const QString line =
        u"Запрос %1 %2, байт: %3%4"_s.arg(QString::fromUtf8(exchange.verb), loggedUrl(exchange.url),
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
                                                          excerpt(exchange.body)));
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
        excerpt(response.body)));
}

QString RestClient::loggedHeaders(const QList<QByteArray> &lines, qsizetype omittedBytes) const
{
    QByteArrayList shown;
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QString name = QString::fromUtf8(line.left(colon)).trimmed();
        const bool isSecret =
            colon >= 0 && (isSecretName(name) || secretHeaders.contains(name, Qt::CaseInsensitive));
        shown.append(isSecret ? line.left(colon) + ": ***" : line);
    }
    return excerpt(shown.join("; "), omittedBytes);
}
