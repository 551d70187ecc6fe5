#include "shared/net/proxyrule.h"

#include "shared/net/curlhandles.h"

#include <QUrl>

#include <netinet/in.h>

using namespace Qt::StringLiterals;

namespace {

/// The proxy for the test, and the address of every other host. No connection is made to either.
constexpr auto testProxy = "http://127.0.0.1:1";
constexpr int testProxyPort = 1;
constexpr auto testTarget = "::127.0.0.1:2";

/// Notes the address that libcurl chose, and prevents the connection.
curl_socket_t recordTarget(void *context, curlsocktype, curl_sockaddr *address)
{
    // Both addresses are IPv4.
    *static_cast<int *>(context) =
        ntohs(reinterpret_cast<const sockaddr_in &>(address->addr).sin_port);
    return CURL_SOCKET_BAD;
}

} // namespace

bool isReachedDirectly(const QString &host, const QString &noProxy)
{
    QUrl url;
    url.setScheme(u"http"_s);
    url.setHost(host);
    if (noProxy.isEmpty() || url.host().isEmpty())
        return false;
    const curl::Handle handle(curl_easy_init());
    const curl::List target(curl_slist_append(nullptr, testTarget));
    int port = testProxyPort;
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.toEncoded().constData());
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_PROXY, testProxy);
    curl_easy_setopt(handle.get(), CURLOPT_NOPROXY, noProxy.toUtf8().constData());
    curl_easy_setopt(handle.get(), CURLOPT_CONNECT_TO, target.get());
    curl_easy_setopt(handle.get(), CURLOPT_OPENSOCKETFUNCTION, recordTarget);
    curl_easy_setopt(handle.get(), CURLOPT_OPENSOCKETDATA, &port);
    curl_easy_perform(handle.get());
    return port != testProxyPort;
}

QString proxyInUse(const QString &host, const QString &proxy, const QString &noProxy)
{
    return proxy.isEmpty() || isReachedDirectly(host, noProxy) ? QString() : proxyName(proxy);
}

QString proxyName(const QString &proxy)
{
    if (proxy.isEmpty())
        return {};
    // An account may contain any character, even unescaped, so everything before the last @ is
    // removed.
    const bool hasAccount = proxy.contains(u'@');
    const qsizetype scheme = proxy.indexOf("://"_L1);
    QString name = hasAccount    ? proxy.mid(proxy.lastIndexOf(u'@') + 1)
                   : scheme >= 0 ? proxy.mid(scheme + 3)
                                 : proxy;
    name.truncate(name.indexOf(u'/') < 0 ? name.size() : name.indexOf(u'/'));
    const bool hasPort = name.lastIndexOf(u':') > name.lastIndexOf(u']');
    if (hasPort)
        return name;
    // libcurl's default ports.
    return name + (proxy.startsWith("https://"_L1, Qt::CaseInsensitive) ? u":443"_s : u":1080"_s);
}

bool isUsableProxy(const QString &proxy)
{
    const curl::Address address(curl_url());
    char *scheme = nullptr;
    if (curl_url_set(address.get(), CURLUPART_URL, proxy.toUtf8().constData(),
                     CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME)
            != CURLUE_OK
        || curl_url_get(address.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK)
        return false;
    static const QByteArrayList known = {"http",    "https",  "socks",  "socks4",
                                         "socks4a", "socks5", "socks5h"};
    const bool isKnown = known.contains(QByteArray(scheme).toLower());
    curl_free(scheme);
    // libcurl takes a text without a scheme as HTTP, whatever the host's name begins with.
    return isKnown || !proxy.contains("://"_L1);
}

bool isHttpProxy(const QString &proxy)
{
    return !proxy.isEmpty() && !proxy.startsWith("socks"_L1, Qt::CaseInsensitive);
}
