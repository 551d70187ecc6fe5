#include "shared/net/curltransport.h"

#include "shared/net/closinghosts.h"
#include "shared/net/contentcoding.h"
#include "shared/net/networksettings.h"
#include "shared/net/proxyrule.h"

#include <QFile>
#include <QFileInfo>
#include <QThreadStorage>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <curl/curl.h>
#include <malloc.h>
#include <memory>
#include <netinet/in.h>
#include <openssl/crypto.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maxBodySize = 16 * 1024 * 1024;
constexpr qsizetype maxHeaderSize = 256 * 1024;
/// libcurl keeps each line of a head in a block of its own, and a thread its memory after that.
constexpr qsizetype largeHeaderSize = 64 * 1024;
/// More than a log line shows. A server may send tens of thousands of short lines, and as many small
/// blocks would stay with the thread's memory.
constexpr qsizetype maxKeptHeaderSize = 8 * 1024;
/// Servers keep an idle connection for 2 to 5 seconds, and a request that meets its end is lost.
constexpr std::chrono::seconds maxIdle{4};
/// libcurl cuts off the fraction of the seconds that a connection was idle before it compares.
constexpr long maxWholeIdleSeconds = maxIdle.count() - 1;
/// A bundle of trusted certificates that was replaced is seen after this time.
constexpr long caCacheSeconds = 60;

constexpr auto userAgent = "queue/" QUEUE_VERSION;

// Values of QNetworkReply::NetworkError.
constexpr int connectionRefusedError = 1;
constexpr int closedEarlyError = 2;
constexpr int hostNotFoundError = 3;
constexpr int timeoutError = 4;
constexpr int tlsError = 6;
constexpr int unknownNetworkError = 99;
constexpr int proxyRefusedError = 101;
constexpr int proxyClosedError = 102;
constexpr int proxyNotFoundError = 103;
constexpr int proxyTimeoutError = 104;
constexpr int proxyAuthenticationError = 105;

struct CurlDeleter
{
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
    void operator()(curl_mime *mime) const { curl_mime_free(mime); }
    void operator()(CURLU *address) const { curl_url_cleanup(address); }
};
using CurlHandle = std::unique_ptr<CURL, CurlDeleter>;
using CurlAddress = std::unique_ptr<CURLU, CurlDeleter>;
using CurlList = std::unique_ptr<curl_slist, CurlDeleter>;
using CurlMime = std::unique_ptr<curl_mime, CurlDeleter>;

/// The connections of one thread. libcurl keeps them in the handle that made them. Those that were
/// opened with a client certificate have a handle of their own, which ends with its certificate, so
/// neither a connection nor a TLS session can ever speak for another client.
struct Connections
{
    /// What the exchanges of a client mostly have in common.
    struct Setting
    {
        bool isSecure = false;
        QString proxy;
        QString noProxy;
        QString caFile;

        bool operator==(const Setting &other) const = default;
    };

    /// Most exchanges of a worker go where the one before went, with the same headers, so these are
    /// kept in the form that libcurl takes.
    struct Client
    {
        CurlList headerLines;
        CurlAddress address;
        /// Borrows the lines and the address above, so it ends first.
        CurlHandle handle;
        /// Scheme, host and port of the address.
        QByteArray host;
        /// What the handle is set up for; nothing when it is not.
        std::optional<Setting> setting;
        QUrl url;
        QList<std::pair<QByteArray, QByteArray>> headers;
    };

    struct Socket
    {
        curl_socket_t descriptor = CURL_SOCKET_BAD;
        /// Whether it is kept for a further exchange with this host, and since when.
        bool isIdle = false;
        std::chrono::steady_clock::time_point idleSince;
        QByteArray host;
    };

    /// Before the handles, since libcurl may write into them while it closes those.
    std::array<char, CURL_ERROR_SIZE> errorBuffer = {};
    QList<Socket> sockets;
    Client plain;
    Client certified;
    QByteArray certifiedIdentity;

    Connections() = default;
    Connections(const Connections &) = delete;
    ~Connections()
    {
        plain.handle.reset();
        certified.handle.reset();
        // OpenSSL's own state of the thread, made anew by the closing above.
        OPENSSL_thread_stop();
    }
};

/// Qt ends what it stores for a thread before it says that the thread has ended, so the service does
/// not leave main() while a worker still closes connections: OpenSSL would be gone under it.
Connections &connectionsOfThread()
{
    // Never destroyed, like the threads of others that it may outlive.
    static auto &storage = *new QThreadStorage<Connections>;
    return storage.localData();
}

/// Those met by any thread: the worker of a type changes its thread from pass to pass.
ClosingHosts &closingHosts()
{
    // Never destroyed, since a worker may outlive main().
    static auto &hosts = *new ClosingHosts;
    return hosts;
}

/// What an exchange brings in.
struct Transfer
{
    bool keepHeaders = false;
    bool isRepeatable = false;

    QByteArray body;
    /// The values of Content-Encoding, comma-joined.
    QByteArray contentCodings;
    QList<QByteArray> headerLines;
    qsizetype keptHeaderSize = 0;
    qsizetype omittedHeaderSize = 0;
    qsizetype headerSize = 0;
    /// The empty line behind the headers came. libcurl lets an answer pass that ends before it.
    bool isHeadWhole = false;
    int attempts = 0;
    bool isBodyTooLarge = false;
    bool isHeaderTooLarge = false;
    bool isRepeatRefused = false;
    CURL *handle = nullptr;
    /// The request went out on a kept connection.
    bool isReused = false;
    /// The server said something on the kept connection before it was asked, or closed it, so nothing was
    /// sent there.
    bool wasOutOfStep = false;
};

std::size_t takeBody(char *data, std::size_t size, std::size_t count, void *context)
{
    auto &transfer = *static_cast<Transfer *>(context);
    const auto length = static_cast<qsizetype>(size * count);
    if (transfer.body.size() + length > maxBodySize) {
        transfer.isBodyTooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    // Grown by doubling, but never past what an answer may have; append() by itself would copy the
    // body and need both places at once.
    const qsizetype needed = transfer.body.size() + length;
    if (needed > transfer.body.capacity())
        transfer.body.reserve(std::clamp(2 * transfer.body.capacity(), needed, maxBodySize));
    transfer.body.append(data, length);
    return size * count;
}

constexpr QByteArrayView contentEncoding("content-encoding:");

/// Not so a line that goes on with the one before, which begins with a blank.
bool isContentEncoding(QByteArrayView line)
{
    return line.size() > contentEncoding.size() && (line.front() | 0x20) == contentEncoding.front()
           && line.first(contentEncoding.size()).compare(contentEncoding, Qt::CaseInsensitive) == 0;
}

std::size_t takeHeader(char *data, std::size_t size, std::size_t count, void *context)
{
    auto &transfer = *static_cast<Transfer *>(context);
    const auto length = static_cast<qsizetype>(size * count);
    transfer.headerSize += length;
    if (transfer.headerSize > maxHeaderSize) {
        transfer.isHeaderTooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    const QByteArrayView line = QByteArrayView(data, length).trimmed();
    if (line.startsWith("HTTP/")) {
        transfer.headerLines.clear();
        transfer.keptHeaderSize = 0;
        transfer.omittedHeaderSize = 0;
        transfer.isHeadWhole = false;
        transfer.contentCodings.clear();
    } else if (line.isEmpty()) {
        transfer.isHeadWhole = true;
    } else if (!transfer.isHeadWhole && isContentEncoding(QByteArrayView(data, length))) {
        if (!transfer.contentCodings.isEmpty())
            transfer.contentCodings += ',';
        transfer.contentCodings += line.sliced(contentEncoding.size());
    }
    if (!transfer.keepHeaders || line.isEmpty())
        return size * count;
    if (transfer.keptHeaderSize < maxKeptHeaderSize) {
        transfer.headerLines.append(line.toByteArray());
        transfer.keptHeaderSize += line.size();
    } else {
        transfer.omittedHeaderSize += line.size();
    }
    return size * count;
}

/// What a kept connection shows before a request is sent on it.
enum class Sign
{
    Quiet,
    /// Bytes that wait to be read.
    Input,
    /// The server has closed it.
    Closed,
};

Sign signOf(curl_socket_t socket)
{
    pollfd wait = {socket, POLLIN | POLLRDHUP, 0};
    if (::poll(&wait, 1, 0) <= 0)
        return Sign::Quiet;
    return (wait.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0 ? Sign::Closed : Sign::Input;
}

void rememberClosing(const QByteArray &host)
{
    closingHosts().add(host, std::chrono::steady_clock::now());
}

curl_socket_t openSocket(void *context, curlsocktype, curl_sockaddr *address)
{
    const curl_socket_t socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket >= 0)
        static_cast<Connections *>(context)->sockets.append({socket, false, {}, {}});
    return socket;
}

int closeSocket(void *context, curl_socket_t descriptor)
{
    static_cast<Connections *>(context)->sockets.removeIf(
        [descriptor](const auto &socket) { return socket.descriptor == descriptor; });
    return ::close(descriptor);
}

int localPort(curl_socket_t socket)
{
    sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    if (::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return -1;
    const auto port = address.ss_family == AF_INET6
                          ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                          : reinterpret_cast<const sockaddr_in &>(address).sin_port;
    return ntohs(port);
}

/// The connection with this port of ours. A thread mostly has but one, which needs no search.
Connections::Socket *socketWithPort(Connections &connections, int port)
{
    for (Connections::Socket &socket : connections.sockets) {
        if (connections.sockets.size() == 1 || localPort(socket.descriptor) == port)
            return &socket;
    }
    return nullptr;
}

/// libcurl replaces a kept connection that the server has closed, and tells nobody. The end of one that was
/// idle for longer hurts nobody.
void noteClosedByServer(Connections &connections, const QByteArray &host)
{
    for (Connections::Socket &socket : connections.sockets) {
        if (socket.isIdle && socket.host == host
            && std::chrono::steady_clock::now() - socket.idleSince < maxIdle
            && signOf(socket.descriptor) == Sign::Closed) {
            socket.isIdle = false;
            rememberClosing(host);
        }
    }
}

/// Notes which connection the exchange leaves open, if it does.
void noteKept(Connections &connections, const Connections::Client &client)
{
    curl_socket_t kept = CURL_SOCKET_BAD;
    curl_easy_getinfo(client.handle.get(), CURLINFO_ACTIVESOCKET, &kept);
    for (Connections::Socket &socket : connections.sockets) {
        // One that was idle all the while is a former exchange's.
        if (socket.descriptor == kept && !socket.isIdle)
            socket = {kept, true, std::chrono::steady_clock::now(), client.host};
    }
}

long longInfo(CURL *handle, CURLINFO info)
{
    long value = 0;
    curl_easy_getinfo(handle, info, &value);
    return value;
}

/// libcurl calls this before each time that it sends the request. A second time means that a kept
/// connection broke before an answer came. The server may have read the request, so a payment, say,
/// would be made twice.
///
/// On a kept connection the server has nothing to say before it is asked. What waits there all the same
/// would be taken for the answer to this request: a message would be done that nobody has read. Where the
/// server has closed it, the request would be lost.
int beforeRequest(void *context, char *, char *, int, int ourPort)
{
    auto &transfer = *static_cast<Transfer *>(context);
    if (longInfo(transfer.handle, CURLINFO_NUM_CONNECTS) == 0) {
        Connections &connections = connectionsOfThread();
        Connections::Socket *const socket = socketWithPort(connections, ourPort);
        const Sign sign = socket ? signOf(socket->descriptor) : Sign::Quiet;
        if (sign == Sign::Closed)
            rememberClosing(socket->host);
        if (socket)
            socket->isIdle = false;
        transfer.wasOutOfStep = sign != Sign::Quiet;
        if (transfer.wasOutOfStep)
            return CURL_PREREQFUNC_ABORT;
        transfer.isReused = true;
    }
    ++transfer.attempts;
    if (transfer.attempts > 1 && !transfer.isRepeatable) {
        transfer.isRepeatRefused = true;
        return CURL_PREREQFUNC_ABORT;
    }
    return CURL_PREREQFUNC_OK;
}

bool isRepeatable(const QByteArray &verb)
{
    static const QList<QByteArray> repeatable = {"GET", "HEAD", "PUT", "DELETE", "OPTIONS"};
    return repeatable.contains(verb);
}

void initializeCurl()
{
    static const CURLcode initialized = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialized != CURLE_OK)
        qFatal("libcurl cannot be used: %s", curl_easy_strerror(initialized));
}

/// Names the file and the state it is in, so that a replaced file is another one.
QByteArray fileIdentity(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status = {};
    if (name.isEmpty() || ::stat(name.constData(), &status) != 0)
        return name;
    return name + '\n' + QByteArray::number(qint64(status.st_ino)) + ' '
           + QByteArray::number(qint64(status.st_size)) + ' '
           + QByteArray::number(qint64(status.st_mtim.tv_sec)) + '.'
           + QByteArray::number(qint64(status.st_mtim.tv_nsec));
}

/// Takes back whatever was set; the connections stay.
void forget(Connections::Client &client)
{
    curl_easy_reset(client.handle.get());
    client.setting.reset();
    client.url.clear();
    client.headers.clear();
    client.headerLines.reset();
    client.address.reset();
}

Connections::Setting settingFor(const Exchange &exchange)
{
    Connections::Setting setting;
    setting.isSecure = exchange.url.scheme() == u"https";
    setting.proxy = settings::network::proxy.value();
    if (!setting.proxy.isEmpty())
        setting.noProxy = settings::network::noProxy.value();
    if (setting.isSecure)
        setting.caFile = settings::network::caFile.value();
    return setting;
}

Connections::Client &clientFor(const Exchange &exchange)
{
    initializeCurl();
    Connections &connections = connectionsOfThread();
    const bool isCertified =
        exchange.url.scheme() == u"https" && !exchange.certificatePath.isEmpty();
    Connections::Client &client = isCertified ? connections.certified : connections.plain;
    if (isCertified) {
        const QByteArray identity = fileIdentity(exchange.certificatePath) + '\n'
                                    + fileIdentity(exchange.privateKeyPath) + '\n'
                                    + exchange.certificatePassword.toUtf8();
        if (identity != connections.certifiedIdentity && client.handle) {
            forget(client);
            client.handle.reset();
        }
        connections.certifiedIdentity = identity;
    }
    if (!client.handle)
        client.handle.reset(curl_easy_init());
    return client;
}

void append(CurlList &list, const QByteArray &line)
{
    list.reset(curl_slist_append(list.release(), line.constData()));
}

/// A header as libcurl takes it, which for one without a value is with a semicolon.
QByteArray headerLine(const QByteArray &name, const QByteArray &value)
{
    return value.isEmpty() ? name + ';' : name + ": " + value;
}

CurlList headerList(const Exchange &exchange)
{
    CurlList list;
    for (const auto &[name, value] : exchange.headers)
        append(list, headerLine(name, value));
    // libcurl writes the lines anew for each request that come from options of their own.
    if (!exchange.hasHeader("User-Agent"))
        append(list, headerLine("User-Agent", userAgent));
    // What libcurl would add by itself: a wait before larger bodies, and a type that raw bytes do not
    // have.
    append(list, "Expect:");
    if (!exchange.hasHeader("Content-Type") && exchange.parts.isEmpty())
        append(list, "Content-Type:");
    return list;
}

CurlMime mimeOf(CURL *handle, const QList<http::Part> &parts)
{
    CurlMime mime(curl_mime_init(handle));
    for (const http::Part &part : parts) {
        curl_mimepart *const section = curl_mime_addpart(mime.get());
        curl_mime_name(section, part.name.constData());
        curl_mime_data(section, part.body.constData(), static_cast<std::size_t>(part.body.size()));
        if (!part.fileName.isEmpty())
            curl_mime_filename(section, part.fileName.constData());
        if (!part.contentType.isEmpty())
            curl_mime_type(section, part.contentType.constData());
        CurlList headers;
        for (auto it = part.headers.cbegin(); it != part.headers.cend(); ++it)
            append(headers, headerLine(it.key(), it.value()));
        if (headers)
            curl_mime_headers(section, headers.release(), 1);
    }
    return mime;
}

void setVerbAndBody(CURL *handle, const Exchange &exchange, const CurlMime &mime)
{
    if (exchange.verb == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, nullptr);
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    // Takes back what the last exchange asked for.
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    static const QList<QByteArray> bodyless = {"GET", "DELETE", "OPTIONS", "TRACE"};
    if (mime) {
        curl_easy_setopt(handle, CURLOPT_MIMEPOST, mime.get());
    } else if (!exchange.body.isEmpty() || !bodyless.contains(exchange.verb)) {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, exchange.body.constData());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(exchange.body.size()));
    }
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, exchange.verb.constData());
}

void setTls(CURL *handle, const Exchange &exchange, const QString &caFile)
{
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(handle, CURLOPT_CA_CACHE_TIMEOUT, caCacheSeconds);
    if (!caFile.isEmpty()) {
        // The file takes the place of the system's bundle; the system's folder holds the same
        // certificates.
        curl_easy_setopt(handle, CURLOPT_CAINFO, QFile::encodeName(caFile).constData());
        curl_easy_setopt(handle, CURLOPT_CAPATH, "/etc/ssl/certs");
    }
    if (exchange.certificatePath.isEmpty())
        return;
    curl_easy_setopt(handle, CURLOPT_SSLCERT,
                     QFile::encodeName(exchange.certificatePath).constData());
    const bool isPkcs12 = exchange.certificatePath.endsWith(u".p12", Qt::CaseInsensitive)
                          || exchange.certificatePath.endsWith(u".pfx", Qt::CaseInsensitive);
    curl_easy_setopt(handle, CURLOPT_SSLCERTTYPE, isPkcs12 ? "P12" : "PEM");
    if (!exchange.privateKeyPath.isEmpty()) {
        curl_easy_setopt(handle, CURLOPT_SSLKEY,
                         QFile::encodeName(exchange.privateKeyPath).constData());
        curl_easy_setopt(handle, CURLOPT_SSLKEYTYPE, "PEM");
    }
    // Also when it is empty: without a password OpenSSL would ask for one on the terminal.
    curl_easy_setopt(handle, CURLOPT_KEYPASSWD, exchange.certificatePassword.toUtf8().constData());
}

/// What all exchanges of a client have in common.
void setUp(CURL *handle, const Exchange &exchange, const Connections::Setting &setting)
{
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, connectionsOfThread().errorBuffer.data());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    // What a proxy is told that makes a tunnel; it does not see the headers of the request.
    curl_easy_setopt(handle, CURLOPT_USERAGENT, setting.proxy.isEmpty() ? nullptr : userAgent);
    // libcurl would make an answer that it cannot unpack a failure, and what was delivered would go out
    // again. So it asks for no packing and leaves it alone.
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, nullptr);
    curl_easy_setopt(handle, CURLOPT_MAXAGE_CONN, maxWholeIdleSeconds);

    // Signals would hit another thread, and a name lookup that hangs must not outlast the timeout.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);

    // Set even when empty: the environment has no say.
    curl_easy_setopt(handle, CURLOPT_PROXY, setting.proxy.toUtf8().constData());
    curl_easy_setopt(handle, CURLOPT_NOPROXY, setting.noProxy.toUtf8().constData());
    curl_easy_setopt(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);

    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, takeHeader);
    curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, beforeRequest);
    Connections &connections = connectionsOfThread();
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, openSocket);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETDATA, &connections);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, closeSocket);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, &connections);

    if (setting.isSecure)
        setTls(handle, exchange, setting.caFile);
}

void setAddress(Connections::Client &client, const QUrl &url)
{
    CURL *const handle = client.handle.get();
    const QByteArray text = url.toEncoded(QUrl::RemoveFragment | QUrl::FullyEncoded);
    curl_easy_setopt(handle, CURLOPT_URL, text.constData());
    // Taken apart once; from the text libcurl would do it for each request. What it cannot take apart
    // it tells of when it is asked to go there.
    CurlAddress address(curl_url());
    const bool isUsable =
        curl_url_set(address.get(), CURLUPART_URL, text.constData(), CURLU_PATH_AS_IS) == CURLUE_OK;
    curl_easy_setopt(handle, CURLOPT_CURLU, isUsable ? address.get() : nullptr);
    client.address = std::move(address);
    client.url = url;
    client.host = (url.scheme() + u' ' + url.host() + u' ' + QString::number(url.port())).toUtf8();
}

/// What is this exchange's own.
void setRequest(Connections::Client &client, const Exchange &exchange, Transfer &transfer)
{
    CURL *const handle = client.handle.get();
    if (client.url != exchange.url)
        setAddress(client, exchange.url);
    if (!client.headerLines || client.headers != exchange.headers || !exchange.parts.isEmpty()) {
        client.headerLines = headerList(exchange);
        client.headers = exchange.headers;
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, client.headerLines.get());
    }
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, long{exchange.timeoutMs});
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, long{exchange.timeoutMs});
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_PREREQDATA, &transfer);
}

/// Whether the exchange may use a connection that is open, and leave its own open.
void setReuse(CURL *handle, bool isAllowed)
{
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, isAllowed ? 0L : 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, isAllowed ? 0L : 1L);
}

QString hostText(const QUrl &url)
{
    return url.port() < 0 ? url.host() : url.host() + u':' + QString::number(url.port());
}

/// The proxy that the exchange went through, as host:port; empty when it went straight to the server.
QString proxyInUse(const Exchange &exchange, const Connections::Setting &setting)
{
    if (setting.proxy.isEmpty() || isReachedDirectly(exchange.url.host(), setting.noProxy))
        return {};
    return proxyName(setting.proxy);
}

http::Response failed(int errorCode, const QString &key, const QString &text, int status)
{
    return http::Response::failed(errorCode, tr::Tr(key, text), status);
}

/// The file of the certificate or key that is not there, empty when all are.
QString missingFile(const Exchange &exchange)
{
    if (exchange.url.scheme() != u"https")
        return {};
    for (const QString &path : {exchange.certificatePath, exchange.privateKeyPath}) {
        if (!path.isEmpty() && !QFileInfo(path).isFile())
            return path;
    }
    return {};
}

/// libcurl cannot read the address of the proxy, which it tells with another code each time.
bool isUnsupportedProxy(const QString &detail)
{
    return detail.contains("Unsupported proxy"_L1);
}

/// What a failure between this side and the proxy was; 0 for one behind it.
int proxyError(CURLcode code, CURL *handle, const Exchange &exchange, const QString &detail)
{
    if (isUnsupportedProxy(detail))
        return proxyNotFoundError;
    const bool isTunnel = exchange.url.scheme() == u"https";
    const long tunnelStatus = longInfo(handle, CURLINFO_HTTP_CONNECTCODE);
    double connectSeconds = 0;
    curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME, &connectSeconds);

    switch (code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
        return proxyNotFoundError;
    case CURLE_PROXY:
        return proxyClosedError;
    case CURLE_OPERATION_TIMEDOUT:
        return connectSeconds == 0 || (isTunnel && tunnelStatus == 0) ? proxyTimeoutError : 0;
    default:
        break;
    }
    if (tunnelStatus == 407)
        return proxyAuthenticationError;
    if (tunnelStatus >= 300)
        return proxyClosedError;
    if (code == CURLE_COULDNT_CONNECT)
        return proxyRefusedError;
    if (isTunnel && tunnelStatus == 0
        && (code == CURLE_RECV_ERROR || code == CURLE_SEND_ERROR || code == CURLE_GOT_NOTHING))
        return proxyClosedError;
    return 0;
}

http::Response proxyFailure(int error, CURL *handle, const Exchange &exchange, const QString &proxy,
                            const QString &detail, int status)
{
    const auto fail = [&](const QString &text) {
        return failed(error, u"networkErrorProxy"_s, text, status);
    };
    const QString seconds = QString::number(exchange.timeoutMs / 1000.0);
    switch (error) {
    case proxyRefusedError:
        return fail(u"Прокси-сервер %1 отклонил соединение"_s.arg(proxy));
    case proxyClosedError: {
        const long tunnelStatus = longInfo(handle, CURLINFO_HTTP_CONNECTCODE);
        const QString reason =
            tunnelStatus > 0 ? u"код состояния %1"_s.arg(QString::number(tunnelStatus)) : detail;
        return fail(u"Прокси-сервер %1 не соединил с сервером %2 (%3)"_s.arg(
            proxy, hostText(exchange.url), reason));
    }
    case proxyNotFoundError:
        return fail(isUnsupportedProxy(detail)
                        ? u"Прокси-сервер %1: недопустимый адрес в network:proxy"_s.arg(proxy)
                        : u"Не найден адрес прокси-сервера %1"_s.arg(proxy));
    case proxyTimeoutError:
        return fail(u"Прокси-сервер %1 не ответил за %2 сек."_s.arg(proxy, seconds));
    default:
        return fail(u"Прокси-сервер %1 не принял имя и пароль (код состояния 407)"_s.arg(proxy));
    }
}

/// Why an exchange with a server that was reached broke off: it was closed, or TLS or HTTP went
/// wrong. libcurl tells these apart only in its text.
int brokenConnectionError(const QByteArray &detail)
{
    for (const char *sign : {"Recv failure", "Send failure", "SYSCALL", "unexpected eof",
                             "Connection reset", "closed"}) {
        if (detail.contains(sign))
            return closedEarlyError;
    }
    return detail.contains("SSL") ? tlsError : unknownNetworkError;
}

/// A line of a head that libcurl does not take comes as a lack of memory, or by the code that has its
/// name only in newer versions.
bool isHeadTooLong(CURLcode code, const QByteArray &detail)
{
    constexpr int tooLarge = 100;
    return code == CURLE_OUT_OF_MEMORY || int{code} == tooLarge
           || detail.contains("Out of memory in chunked") || detail.contains("response headers");
}

http::Response failure(CURLcode code, CURL *handle, const Exchange &exchange, const QString &proxy,
                       const Transfer &transfer)
{
    const QString host = proxy.isEmpty()
                             ? hostText(exchange.url)
                             : u"%1 (через прокси-сервер %2)"_s.arg(hostText(exchange.url), proxy);
    const QByteArray errorBytes(connectionsOfThread().errorBuffer.data());
    const QString detail = errorBytes.isEmpty() ? QString::fromUtf8(curl_easy_strerror(code))
                                                : QString::fromUtf8(errorBytes);
    const long lastStatus = longInfo(handle, CURLINFO_RESPONSE_CODE);
    const int status = lastStatus < 200 ? 0 : static_cast<int>(lastStatus);

    if (transfer.isBodyTooLarge)
        return failed(unknownNetworkError, u"networkErrorTooLarge"_s,
                      u"Ответ сервера %1 больше 16 МиБ"_s.arg(host), status);
    if (transfer.isHeaderTooLarge)
        return failed(unknownNetworkError, u"networkErrorTooLarge"_s,
                      u"Заголовки ответа сервера %1 больше 256 КиБ"_s.arg(host), status);

    if (isHeadTooLong(code, errorBytes) && transfer.attempts > 0) {
        const bool isRequest = longInfo(handle, CURLINFO_REQUEST_SIZE) == 0;
        return failed(
            unknownNetworkError, u"networkErrorTooLarge"_s,
            isRequest ? u"Слишком длинный адрес или заголовок в запросе к серверу %1"_s.arg(host)
                      : u"Слишком длинный заголовок в ответе сервера %1"_s.arg(host),
            status);
    }

    if (!proxy.isEmpty() && !transfer.isRepeatRefused) {
        const int error = proxyError(code, handle, exchange, detail);
        if (error != 0)
            return proxyFailure(error, handle, exchange, proxy, detail, status);
    }

    int error = unknownNetworkError;
    switch (code) {
    case CURLE_ABORTED_BY_CALLBACK:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
        error = closedEarlyError;
        break;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        error = brokenConnectionError(errorBytes);
        break;
    case CURLE_COULDNT_CONNECT:
        if (longInfo(handle, CURLINFO_OS_ERRNO) == ECONNREFUSED)
            error = connectionRefusedError;
        else if (longInfo(handle, CURLINFO_OS_ERRNO) == ETIMEDOUT)
            error = timeoutError;
        else if (longInfo(handle, CURLINFO_OS_ERRNO) == ECONNRESET)
            error = closedEarlyError;
        break;
    case CURLE_COULDNT_RESOLVE_HOST:
        error = hostNotFoundError;
        break;
    case CURLE_OPERATION_TIMEDOUT:
        error = timeoutError;
        break;
    case CURLE_PEER_FAILED_VERIFICATION:
        return failed(tlsError, u"networkErrorServerCertificate"_s,
                      u"Сертификат сервера %1 не прошёл проверку (%2)"_s.arg(host, detail), status);
    case CURLE_SSL_CERTPROBLEM:
        return failed(
            tlsError, u"networkErrorClientCertificate"_s,
            u"Сертификат клиента '%1' не подходит, проверьте файл, ключ и пароль (%2)"_s.arg(
                exchange.certificatePath, detail),
            status);
    case CURLE_SSL_CACERT_BADFILE:
        return failed(tlsError, u"networkErrorCaFile"_s,
                      u"Не удалось прочитать доверенные сертификаты (%1)"_s.arg(detail), status);
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_USE_SSL_FAILED:
        error = tlsError;
        break;
    default:
        break;
    }

    switch (error) {
    case connectionRefusedError:
        return failed(error, u"networkErrorRefused"_s, u"Сервер %1 отклонил соединение"_s.arg(host),
                      status);
    case closedEarlyError:
        return failed(error, u"networkErrorClosed"_s,
                      u"Сервер %1 закрыл соединение до конца ответа"_s.arg(host), status);
    case hostNotFoundError:
        return failed(error, u"networkErrorHost"_s, u"Не найден адрес сервера %1"_s.arg(host),
                      status);
    case timeoutError:
        return failed(error, u"networkErrorTimeout"_s,
                      u"Сервер %1 не ответил за %2 сек."_s.arg(
                          host, QString::number(exchange.timeoutMs / 1000.0)),
                      status);
    case tlsError:
        return failed(
            error, u"networkErrorTls"_s,
            u"Не удалось установить защищённое соединение с сервером %1 (%2)"_s.arg(host, detail),
            status);
    default:
        return failed(error, u"networkErrorUnknown"_s,
                      u"Обмен с сервером %1 не удался (%2)"_s.arg(host, detail), status);
    }
}

/// Whether the kept connection that the request went out on was closed before a byte of the answer came.
bool hasLostKeptConnection(CURLcode code, const Transfer &transfer)
{
    const bool isBroken =
        code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_GOT_NOTHING;
    return transfer.isReused && (transfer.attempts > 1 || (isBroken && transfer.headerSize == 0));
}

CURLcode carryOut(Connections::Client &client, Transfer &transfer)
{
    CURL *const handle = client.handle.get();
    Connections &connections = connectionsOfThread();
    const auto isReuseAllowed = [&client] {
        return !closingHosts().contains(client.host, std::chrono::steady_clock::now());
    };
    noteClosedByServer(connections, client.host);
    setReuse(handle, isReuseAllowed());
    CURLcode code = curl_easy_perform(handle);
    if (transfer.wasOutOfStep) {
        setReuse(handle, isReuseAllowed());
        curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
        code = curl_easy_perform(handle);
    }
    if (hasLostKeptConnection(code, transfer))
        rememberClosing(client.host);
    noteKept(connections, client);
    return code;
}

http::Response responseOf(CURLcode code, CURL *handle, const Exchange &exchange,
                          const Connections::Setting &setting, Transfer &transfer)
{
    if (code != CURLE_OK)
        return failure(code, handle, exchange, proxyInUse(exchange, setting), transfer);

    const auto status = static_cast<int>(longInfo(handle, CURLINFO_RESPONSE_CODE));
    const auto unusable = [&] {
        return failure(CURLE_PARTIAL_FILE, handle, exchange, {}, transfer);
    };
    if (!transfer.isHeadWhole || status < 200)
        return unusable();
    // What answers so is the proxy. The server has not seen the request.
    constexpr int proxyAuthenticationStatus = 407;
    if (status == proxyAuthenticationStatus && !setting.isSecure && isHttpProxy(setting.proxy)) {
        const QString proxy = proxyInUse(exchange, setting);
        if (!proxy.isEmpty())
            return proxyFailure(proxyAuthenticationError, handle, exchange, proxy, {}, status);
    }
    if (!transfer.contentCodings.isEmpty()) {
        switch (http::unpack(transfer.body, transfer.contentCodings, maxBodySize)) {
        case http::Unpacking::Done:
            break;
        case http::Unpacking::Unknown:
            // An answer is an answer: what was delivered must not go out again.
            break;
        case http::Unpacking::CutOff:
            return unusable();
        case http::Unpacking::TooLarge:
            transfer.isBodyTooLarge = true;
            return unusable();
        }
    }
    return http::Response::answered(status, transfer.body);
}

} // namespace

bool Exchange::hasHeader(const char *name) const
{
    return std::any_of(headers.cbegin(), headers.cend(), [name](const auto &header) {
        return header.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

ExchangeOutcome performExchange(const Exchange &exchange)
{
    const QString missing = missingFile(exchange);
    if (!missing.isEmpty())
        return {failed(tlsError, u"networkErrorClientCertificate"_s,
                       u"Не найден файл сертификата '%1'"_s.arg(missing), 0),
                {}};

    Connections::Client &client = clientFor(exchange);
    CURL *const handle = client.handle.get();
    const Connections::Setting setting = settingFor(exchange);
    if (client.setting != setting) {
        forget(client);
        setUp(handle, exchange, setting);
        client.setting = setting;
    }

    Transfer transfer;
    transfer.handle = handle;
    transfer.keepHeaders = exchange.keepHeaders;
    transfer.isRepeatable = isRepeatable(exchange.verb);
    const CurlMime mime = exchange.parts.isEmpty() ? CurlMime() : mimeOf(handle, exchange.parts);

    connectionsOfThread().errorBuffer[0] = '\0';
    setRequest(client, exchange, transfer);
    setVerbAndBody(handle, exchange, mime);
    const CURLcode code = carryOut(client, transfer);

    ExchangeOutcome outcome;
    outcome.response = responseOf(code, handle, exchange, setting, transfer);
    outcome.headerLines = transfer.headerLines;
    outcome.omittedHeaderBytes = transfer.omittedHeaderSize;
    const bool isHeadLarge = transfer.headerSize > largeHeaderSize;
    // libcurl counts the connections that broke under one set-up and gives up after five of them, and
    // parts must not be gone before it has let go of them.
    if (mime || code != CURLE_OK || transfer.attempts > 1 || transfer.wasOutOfStep || isHeadLarge)
        forget(client);
    if (isHeadLarge) {
        client.handle.reset();
        ::malloc_trim(0);
    }
    return outcome;
}
