#include "shared/net/curlfailure.h"

#include "shared/net/connections.h"
#include "shared/net/exchange.h"

#include <QHash>

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace {

using curl::Circumstances;

bool says(const Circumstances &failed, std::initializer_list<const char *> signs)
{
    return std::any_of(signs.begin(), signs.end(),
                       [&](const char *sign) { return failed.detail.contains(sign); });
}

bool isAlways(const Circumstances &)
{
    return true;
}

bool isBodyTooLarge(const Circumstances &failed)
{
    return failed.transfer.isBodyTooLarge;
}

bool isHeaderTooLarge(const Circumstances &failed)
{
    return failed.transfer.isHeaderTooLarge;
}

/// For a header line that is too long, libcurl reports a lack of memory, or in newer versions a
/// code of its own.
bool isLineTooLong(const Circumstances &failed)
{
    constexpr int tooLarge = 100;
    return failed.transfer.attempts > 0
           && (failed.code == CURLE_OUT_OF_MEMORY || int{failed.code} == tooLarge
               || says(failed, {"Out of memory in chunked", "response headers"}));
}

bool isRequestTooLong(const Circumstances &failed)
{
    return isLineTooLong(failed) && !failed.isRequestSent;
}

/// A repeat that we refused is our own end of the exchange, whatever the proxy did.
bool isByProxy(const Circumstances &failed)
{
    return !failed.proxy.isEmpty() && !failed.transfer.isRepeatRefused;
}

/// libcurl cannot parse the proxy's address; its error code for that varies.
bool isProxyUnusable(const Circumstances &failed)
{
    return isByProxy(failed) && says(failed, {"Unsupported proxy"});
}

bool isProxySilent(const Circumstances &failed)
{
    return isByProxy(failed)
           && (!failed.isConnected || (failed.isSecure && failed.tunnelStatus == 0));
}

bool isNameRefused(const Circumstances &failed)
{
    return isByProxy(failed)
           && (failed.transfer.isProxyRefusal
               || failed.tunnelStatus == curl::proxyAuthenticationStatus);
}

bool isTunnelRefused(const Circumstances &failed)
{
    return isByProxy(failed) && failed.tunnelStatus >= 300;
}

bool isTunnelCutOff(const Circumstances &failed)
{
    return isByProxy(failed) && failed.isSecure && failed.tunnelStatus == 0;
}

bool isRefused(const Circumstances &failed)
{
    return failed.systemError == ECONNREFUSED;
}

bool isUnanswered(const Circumstances &failed)
{
    return failed.systemError == ETIMEDOUT;
}

bool isReset(const Circumstances &failed)
{
    return failed.systemError == ECONNRESET;
}

bool isClosedByServer(const Circumstances &failed)
{
    return says(failed, {"Recv failure", "Send failure", "SYSCALL", "unexpected eof",
                         "Connection reset", "closed"});
}

bool isOfTls(const Circumstances &failed)
{
    return says(failed, {"SSL"});
}

/// One kind of failure.
struct Failure
{
    /// libcurl's codes; if empty, the row applies to any code.
    std::array<CURLcode, 4> codes;
    bool (*condition)(const Circumstances &);
    int error;
    http::FailureKind kind;
    /// The key of the text in the translations.
    QStringView key;
    /// The placeholders' values come from textOf().
    QStringView text;
};

using http::FailureKind;

// clang-format off
/// The first matching row counts.
constexpr Failure failures[] = {
    // Limits of our own.
    {{}, isBodyTooLarge, http::unknownNetworkError, FailureKind::Service,
     u"networkErrorTooLarge", u"Ответ сервера {host} больше 16 МиБ"},
    {{}, isHeaderTooLarge, http::unknownNetworkError, FailureKind::Service,
     u"networkErrorTooLarge", u"Заголовки ответа сервера {host} больше 256 КиБ"},
    {{}, isRequestTooLong, http::unknownNetworkError, FailureKind::Request,
     u"networkErrorTooLarge", u"Слишком длинный адрес или заголовок в запросе к серверу {host}"},
    {{}, isLineTooLong, http::unknownNetworkError, FailureKind::Service,
     u"networkErrorTooLarge", u"Слишком длинный заголовок в ответе сервера {host}"},

    // The connection to the proxy.
    {{}, isProxyUnusable, http::proxyNotFoundError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy}: недопустимый адрес в network:proxy"},
    {{CURLE_COULDNT_RESOLVE_PROXY}, isByProxy, http::proxyNotFoundError, FailureKind::Network,
     u"networkErrorProxy", u"Не найден адрес прокси-сервера {proxy}"},
    {{CURLE_PROXY}, isByProxy, http::proxyClosedError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy} не соединил с сервером {server} ({reason})"},
    {{CURLE_OPERATION_TIMEDOUT}, isProxySilent, http::proxyTimeoutError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy} не ответил за {seconds} сек."},
    {{CURLE_OPERATION_TIMEDOUT}, isAlways, http::timeoutError, FailureKind::Network,
     u"networkErrorTimeout", u"Сервер {host} не ответил за {seconds} сек."},
    {{}, isNameRefused, http::proxyAuthenticationError, FailureKind::Credentials,
     u"networkErrorProxy", u"Прокси-сервер {proxy} не принял имя и пароль (код состояния 407)"},
    {{}, isTunnelRefused, http::proxyClosedError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy} не соединил с сервером {server} ({reason})"},
    {{CURLE_COULDNT_CONNECT}, isByProxy, http::proxyRefusedError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy} отклонил соединение"},
    {{CURLE_RECV_ERROR, CURLE_SEND_ERROR, CURLE_GOT_NOTHING}, isTunnelCutOff,
     http::proxyClosedError, FailureKind::Network,
     u"networkErrorProxy", u"Прокси-сервер {proxy} не соединил с сервером {server} ({reason})"},

    // The connection to the server.
    {{CURLE_COULDNT_RESOLVE_HOST}, isAlways, http::hostNotFoundError, FailureKind::Network,
     u"networkErrorHost", u"Не найден адрес сервера {host}"},
    {{CURLE_COULDNT_CONNECT}, isRefused, http::connectionRefusedError, FailureKind::Network,
     u"networkErrorRefused", u"Сервер {host} отклонил соединение"},
    {{CURLE_COULDNT_CONNECT}, isUnanswered, http::timeoutError, FailureKind::Network,
     u"networkErrorTimeout", u"Сервер {host} не ответил за {seconds} сек."},
    {{CURLE_COULDNT_CONNECT}, isReset, http::closedEarlyError, FailureKind::Network,
     u"networkErrorClosed", u"Сервер {host} закрыл соединение до конца ответа"},
    {{CURLE_ABORTED_BY_CALLBACK, CURLE_GOT_NOTHING, CURLE_PARTIAL_FILE}, isAlways,
     http::closedEarlyError, FailureKind::Network,
     u"networkErrorClosed", u"Сервер {host} закрыл соединение до конца ответа"},
    {{CURLE_SSL_CONNECT_ERROR, CURLE_RECV_ERROR, CURLE_SEND_ERROR}, isClosedByServer,
     http::closedEarlyError, FailureKind::Network,
     u"networkErrorClosed", u"Сервер {host} закрыл соединение до конца ответа"},

    // TLS.
    {{CURLE_SSL_CONNECT_ERROR, CURLE_RECV_ERROR, CURLE_SEND_ERROR}, isOfTls,
     http::tlsError, FailureKind::Certificate,
     u"networkErrorTls", u"Не удалось установить защищённое соединение с сервером {host} ({detail})"},
    {{CURLE_SSL_CIPHER, CURLE_SSL_ENGINE_INITFAILED, CURLE_SSL_ISSUER_ERROR, CURLE_USE_SSL_FAILED},
     isAlways, http::tlsError, FailureKind::Certificate,
     u"networkErrorTls", u"Не удалось установить защищённое соединение с сервером {host} ({detail})"},
    {{CURLE_PEER_FAILED_VERIFICATION}, isAlways, http::tlsError, FailureKind::Certificate,
     u"networkErrorServerCertificate",
     u"Сертификат сервера {host} не прошёл проверку ({detail})"},
    {{CURLE_SSL_CERTPROBLEM}, isAlways, http::tlsError, FailureKind::Certificate,
     u"networkErrorClientCertificate",
     u"Сертификат клиента '{file}' не подходит, проверьте файл, ключ и пароль ({detail})"},
    {{CURLE_SSL_CACERT_BADFILE}, isAlways, http::tlsError, FailureKind::Certificate,
     u"networkErrorCaFile", u"Не удалось прочитать доверенные сертификаты ({detail})"},

    {{}, isAlways, http::unknownNetworkError, FailureKind::Network,
     u"networkErrorUnknown", u"Обмен с сервером {host} не удался ({detail})"},
};
// clang-format on

bool applies(const Failure &failure, const Circumstances &failed)
{
    const auto &codes = failure.codes;
    return (codes.front() == CURLE_OK
            || std::find(codes.begin(), codes.end(), failed.code) != codes.end())
           && failure.condition(failed);
}

/// Replaces names in braces by their values. In one pass, since a value may contain braces.
QString filled(QStringView text, const QHash<QStringView, QString> &values)
{
    QString result;
    for (qsizetype open = text.indexOf(u'{'); open >= 0; open = text.indexOf(u'{')) {
        const qsizetype close = text.indexOf(u'}', open);
        result +=
            text.first(open).toString() + values.value(text.sliced(open + 1, close - open - 1));
        text = text.sliced(close + 1);
    }
    return result + text.toString();
}

QString textOf(const Failure &failure, const Circumstances &failed)
{
    const QString detail = failed.detail.isEmpty()
                               ? QString::fromUtf8(curl_easy_strerror(failed.code))
                               : QString::fromUtf8(failed.detail);
    return filled(
        failure.text,
        {
            {u"server", failed.server},
            {u"host", failed.proxy.isEmpty()
                          ? failed.server
                          : u"%1 (через прокси-сервер %2)"_s.arg(failed.server, failed.proxy)},
            {u"proxy", failed.proxy},
            {u"detail", detail},
            {u"reason", failed.tunnelStatus > 0
                            ? u"код состояния %1"_s.arg(QString::number(failed.tunnelStatus))
                            : detail},
            {u"seconds", QString::number(std::chrono::duration<double>(failed.timeout).count())},
            {u"file", failed.certificatePath},
        });
}

QString serverText(const QUrl &url)
{
    return url.port() < 0 ? url.host() : url.host() + u':' + QString::number(url.port());
}

} // namespace

namespace curl {

Circumstances circumstancesOf(CURLcode code, const Transfer &transfer, const Exchange &exchange,
                              const QString &proxy)
{
    CURL *const handle = transfer.handle;
    double connectSeconds = 0;
    curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME, &connectSeconds);
    const auto status = static_cast<int>(longInfo(handle, CURLINFO_RESPONSE_CODE));

    Circumstances failed;
    failed.code = code;
    failed.detail = QByteArray(connectionsOfThread().errorBuffer.data());
    failed.systemError = longInfo(handle, CURLINFO_OS_ERRNO);
    failed.proxy = proxy;
    failed.tunnelStatus = longInfo(handle, CURLINFO_HTTP_CONNECTCODE);
    failed.isSecure = exchange.isSecure();
    failed.isConnected = connectSeconds > 0;
    failed.isRequestSent = longInfo(handle, CURLINFO_REQUEST_SIZE) > 0;
    failed.server = serverText(exchange.url);
    failed.certificatePath = exchange.certificatePath;
    failed.timeout = exchange.timeout;
    // A status below 200 is an interim response.
    failed.status = status < 200 ? 0 : status;
    failed.transfer = transfer;
    return failed;
}

http::Response failureFor(const Circumstances &failed)
{
    const Failure *const failure =
        std::find_if(std::begin(failures), std::end(failures),
                     [&failed](const Failure &row) { return applies(row, failed); });
    return http::Response::failed(failure->error,
                                  tr::Tr(failure->key.toString(), textOf(*failure, failed)),
                                  failed.status, failure->kind);
}

http::Response missingCertificateFile(const QString &path)
{
    return http::Response::failed(
        http::tlsError,
        tr::Tr(u"networkErrorClientCertificate"_s, u"Не найден файл сертификата '%1'"_s.arg(path)));
}

} // namespace curl
