#include "shared/net/curloptions.h"

#include "shared/net/clientcertificate.h"
#include "shared/net/exchange.h"
#include "shared/net/networksettings.h"

#include <QFile>

#include <algorithm>
#include <iterator>

namespace {

/// libcurl truncates the idle time to whole seconds before it compares.
constexpr long maxWholeIdleSeconds = curl::maxIdle.count() - 1;
/// A replaced CA bundle takes effect within this time.
constexpr std::chrono::seconds caCacheTime{60};

constexpr auto userAgent = "queue/" QUEUE_VERSION;

void append(curl::List &list, const QByteArray &line)
{
    list.reset(curl_slist_append(list.release(), line.constData()));
}

/// A header in libcurl's form: one without a value ends with a semicolon.
QByteArray headerLine(const QByteArray &name, const QByteArray &value)
{
    return value.isEmpty() ? name + ';' : name + ": " + value;
}

curl::List headerList(const Exchange &exchange)
{
    curl::List list;
    for (const auto &[name, value] : exchange.headers)
        append(list, headerLine(name, value));
    // As a header: CURLOPT_USERAGENT would be formatted again for each request.
    if (!exchange.hasHeader("User-Agent"))
        append(list, headerLine("User-Agent", userAgent));
    // Removes libcurl's defaults: the wait of "Expect" before larger bodies, and a wrong type for
    // raw bytes.
    append(list, "Expect:");
    if (!exchange.hasHeader("Content-Type") && exchange.parts.isEmpty())
        append(list, "Content-Type:");
    return list;
}

void setClientCertificate(CURL *handle, const Exchange &exchange)
{
    if (exchange.certificatePath.isEmpty())
        return;
    curl_easy_setopt(handle, CURLOPT_SSLCERT,
                     QFile::encodeName(exchange.certificatePath).constData());
    curl_easy_setopt(handle, CURLOPT_SSLCERTTYPE,
                     http::isPkcs12(exchange.certificatePath) ? "P12" : "PEM");
    if (!exchange.privateKeyPath.isEmpty()) {
        curl_easy_setopt(handle, CURLOPT_SSLKEY,
                         QFile::encodeName(exchange.privateKeyPath).constData());
        curl_easy_setopt(handle, CURLOPT_SSLKEYTYPE, "PEM");
    }
    // Even if empty: otherwise OpenSSL asks for a password on the terminal.
    curl_easy_setopt(handle, CURLOPT_KEYPASSWD, exchange.certificatePassword.toUtf8().constData());
}

void setTls(CURL *handle, const Exchange &exchange, const QString &caFile)
{
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(handle, CURLOPT_CA_CACHE_TIMEOUT, long{caCacheTime.count()});
    if (!caFile.isEmpty()) {
        // CURLOPT_CAINFO replaces the system's bundle; the system's folder contains the same
        // certificates.
        curl_easy_setopt(handle, CURLOPT_CAINFO, QFile::encodeName(caFile).constData());
        curl_easy_setopt(handle, CURLOPT_CAPATH, "/etc/ssl/certs");
    }
    setClientCertificate(handle, exchange);
}

void setProxy(CURL *handle, const curl::Setup &setup)
{
    // Even if empty, so that proxy variables of the environment have no effect.
    curl_easy_setopt(handle, CURLOPT_PROXY, setup.proxy.toUtf8().constData());
    curl_easy_setopt(handle, CURLOPT_NOPROXY, setup.noProxy.toUtf8().constData());
    curl_easy_setopt(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // The user agent of CONNECT; the proxy does not see the request's headers.
    curl_easy_setopt(handle, CURLOPT_USERAGENT, setup.proxy.isEmpty() ? nullptr : userAgent);
}

void setCallbacks(CURL *handle, curl::Connections &connections)
{
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, connections.errorBuffer.data());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, curl::takeBody);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, curl::takeHeader);
    curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, curl::beforeRequest);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, curl::openSocket);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETDATA, &connections.sockets);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, curl::closeSocket);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, &connections.sockets);
}

void setAddress(curl::Client &client, const QUrl &url)
{
    CURL *const handle = client.handle.get();
    const QByteArray text = url.toEncoded(QUrl::RemoveFragment | QUrl::FullyEncoded);
    curl_easy_setopt(handle, CURLOPT_URL, text.constData());
    // Parsed once; from a text libcurl would parse it for each request. An address that libcurl
    // cannot parse is reported when the exchange starts.
    curl::Address address(curl_url());
    const bool isUsable =
        curl_url_set(address.get(), CURLUPART_URL, text.constData(), CURLU_PATH_AS_IS) == CURLUE_OK;
    curl_easy_setopt(handle, CURLOPT_CURLU, isUsable ? address.get() : nullptr);
    client.address = std::move(address);
    client.url = url;
    client.host = (url.scheme() + u' ' + url.host() + u' ' + QString::number(url.port())).toUtf8();
}

void setVerbAndBody(CURL *handle, const Exchange &exchange, const curl::Mime &parts)
{
    if (exchange.verb == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, nullptr);
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    // Undoes the method of the last exchange.
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    static constexpr QByteArrayView bodyless[] = {"GET", "DELETE", "OPTIONS", "TRACE"};
    const bool isBodyless = std::ranges::find(bodyless, exchange.verb) != std::end(bodyless);
    if (parts) {
        curl_easy_setopt(handle, CURLOPT_MIMEPOST, parts.get());
    } else if (!exchange.body.isEmpty() || !isBodyless) {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, exchange.body.constData());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(exchange.body.size()));
    }
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, exchange.verb.constData());
}

} // namespace

namespace curl {

Setup setupFor(const Exchange &exchange)
{
    Setup setup;
    setup.isSecure = exchange.isSecure();
    setup.proxy = settings::network::proxy.value();
    if (!setup.proxy.isEmpty())
        setup.noProxy = settings::network::noProxy.value();
    if (setup.isSecure)
        setup.caFile = settings::network::caFile.value();
    return setup;
}

void setUp(Client &client, const Exchange &exchange, const Setup &setup)
{
    if (client.setup == setup)
        return;
    client.forget();
    CURL *const handle = client.handle.get();
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    // libcurl would fail on an answer that it cannot decode, and the message, although delivered,
    // would be sent again. So libcurl neither asks for compression nor decodes.
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, nullptr);
    curl_easy_setopt(handle, CURLOPT_MAXAGE_CONN, maxWholeIdleSeconds);
    // Signals would interrupt another thread. Without them, libcurl's resolver thread keeps to the
    // timeout.
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
    setProxy(handle, setup);
    setCallbacks(handle, connectionsOfThread());
    if (setup.isSecure)
        setTls(handle, exchange, setup.caFile);
    client.setup = setup;
}

void setRequest(Client &client, const Exchange &exchange, Transfer &transfer, const Mime &parts)
{
    CURL *const handle = client.handle.get();
    if (client.url != exchange.url)
        setAddress(client, exchange.url);
    if (!client.headerLines || client.headers != exchange.headers || !exchange.parts.isEmpty()) {
        client.headerLines = headerList(exchange);
        client.headers = exchange.headers;
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, client.headerLines.get());
    }
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(exchange.timeout.count()));
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(exchange.timeout.count()));
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_PREREQDATA, &transfer);
    setVerbAndBody(handle, exchange, parts);
}

Mime partsOf(CURL *handle, const Exchange &exchange)
{
    if (exchange.parts.isEmpty())
        return {};
    Mime mime(curl_mime_init(handle));
    for (const http::Part &part : exchange.parts) {
        curl_mimepart *const section = curl_mime_addpart(mime.get());
        curl_mime_name(section, part.name.constData());
        curl_mime_data(section, part.body.constData(), static_cast<std::size_t>(part.body.size()));
        if (!part.fileName.isEmpty())
            curl_mime_filename(section, part.fileName.constData());
        if (!part.contentType.isEmpty())
            curl_mime_type(section, part.contentType.constData());
        List headers;
        for (auto it = part.headers.cbegin(); it != part.headers.cend(); ++it)
            append(headers, headerLine(it.key(), it.value()));
        if (headers)
            curl_mime_headers(section, headers.release(), 1);
    }
    return mime;
}

void setReuse(CURL *handle, bool isAllowed)
{
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, isAllowed ? 0L : 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, isAllowed ? 0L : 1L);
}

} // namespace curl
