#include "shared/net/curltransport.h"

#include "shared/net/connections.h"
#include "shared/net/contentcoding.h"
#include "shared/net/curlfailure.h"
#include "shared/net/curloptions.h"
#include "shared/net/proxyrule.h"
#include "shared/net/transfer.h"

#include <QFileInfo>

#include <algorithm>
#include <iterator>
#include <malloc.h>

namespace {

using curl::Client;
using curl::Setup;
using curl::Transfer;

/// libcurl allocates each header line separately, and the thread's heap keeps that memory.
constexpr qsizetype largeHeaderSize = 64 * 1024;

/// The missing certificate or key file; empty if all exist.
QString missingFile(const Exchange &exchange)
{
    if (!exchange.isSecure())
        return {};
    for (const QString &path : {exchange.certificatePath, exchange.privateKeyPath}) {
        if (!path.isEmpty() && !QFileInfo(path).isFile())
            return path;
    }
    return {};
}

bool isRepeatable(const QByteArray &verb)
{
    static constexpr QByteArrayView repeatable[] = {"GET", "HEAD", "PUT", "DELETE", "OPTIONS"};
    return std::ranges::find(repeatable, verb) != std::end(repeatable);
}

/// Whether the kept connection was closed before the first byte of the answer.
bool hasLostKeptConnection(CURLcode code, const Transfer &transfer)
{
    const bool isBroken =
        code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_GOT_NOTHING;
    return transfer.isReused && (transfer.attempts > 1 || (isBroken && transfer.headerSize == 0));
}

CURLcode carryOut(const Client &client, Transfer &transfer)
{
    CURL *const handle = client.handle.get();
    curl::KeptSockets &sockets = curl::connectionsOfThread().sockets;
    sockets.noteClosedByServer(client.host);
    curl::setReuse(handle, curl::isReuseAllowed(client.host));
    CURLcode code = curl_easy_perform(handle);
    if (transfer.wasOutOfStep) {
        curl::setReuse(handle, curl::isReuseAllowed(client.host));
        curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
        code = curl_easy_perform(handle);
    }
    if (hasLostKeptConnection(code, transfer))
        curl::rememberClosingHost(client.host);
    curl_socket_t kept = CURL_SOCKET_BAD;
    curl_easy_getinfo(handle, CURLINFO_ACTIVESOCKET, &kept);
    sockets.noteKept(kept, client.host);
    return code;
}

/// Decodes the body of an answer. False if the body is truncated.
bool unpackBody(Transfer &transfer)
{
    if (transfer.contentCodings.isEmpty())
        return true;
    switch (http::unpack(transfer.body, transfer.contentCodings, curl::maxBodySize)) {
    case http::Unpacking::CutOff:
        return false;
    case http::Unpacking::TooLarge:
        transfer.isBodyTooLarge = true;
        return false;
    case http::Unpacking::Done:
    case http::Unpacking::Unknown:
        // Still an answer: a delivered message must not be sent again.
        break;
    }
    return true;
}

/// Runs libcurl's own rule, so call it only when needed.
QString proxyFor(const Exchange &exchange, const Setup &setup)
{
    return proxyInUse(exchange.url.host(), setup.proxy, setup.noProxy);
}

http::Response responseOf(CURLcode code, const Exchange &exchange, const Setup &setup,
                          Transfer &transfer)
{
    const auto failed = [&](CURLcode failure, const QString &proxy) {
        return curl::failureFor(curl::circumstancesOf(failure, transfer, exchange, proxy));
    };
    if (code != CURLE_OK)
        return failed(code, proxyFor(exchange, setup));

    const auto status = static_cast<int>(curl::longInfo(transfer.handle, CURLINFO_RESPONSE_CODE));
    if (!transfer.isHeadWhole || status < 200)
        return failed(CURLE_PARTIAL_FILE, {});
    // The answer came from the proxy; the server has not seen the request.
    if (status == curl::proxyAuthenticationStatus && !setup.isSecure && isHttpProxy(setup.proxy)) {
        const QString proxy = proxyFor(exchange, setup);
        transfer.isProxyRefusal = !proxy.isEmpty();
        if (transfer.isProxyRefusal)
            return failed(CURLE_PARTIAL_FILE, proxy);
    }
    if (!unpackBody(transfer))
        return failed(CURLE_PARTIAL_FILE, {});
    return http::Response::answered(status, transfer.body);
}

Transfer transferOf(const Exchange &exchange, const Client &client)
{
    Transfer transfer;
    transfer.handle = client.handle.get();
    transfer.keepHeaders = exchange.keepHeaders;
    transfer.isRepeatable = isRepeatable(exchange.verb);
    return transfer;
}

ExchangeOutcome outcomeOf(const Exchange &exchange, const http::Response &response,
                          const Transfer &transfer)
{
    ExchangeOutcome outcome{.response = response};
    outcome.headerLines = transfer.headerLines;
    outcome.omittedHeaderBytes = transfer.omittedHeaderSize;
    outcome.clockDifference = transfer.clockDifference;
    if (exchange.isSecure() && !exchange.certificatePath.isEmpty()) {
        outcome.certificatePath = exchange.certificatePath;
        outcome.certificateEnd = curl::connectionsOfThread().certificateEnd();
    }
    return outcome;
}

/// Prepares the client for the next exchange. libcurl counts broken connections per set of options
/// and gives up after five, so a failed exchange resets the options. Multipart sections must
/// outlive their use by the handle.
void prepareForNext(Client &client, CURLcode code, const Transfer &transfer, bool hasParts)
{
    const bool isHeadLarge = transfer.headerSize > largeHeaderSize;
    if (hasParts || code != CURLE_OK || transfer.attempts > 1 || transfer.wasOutOfStep
        || isHeadLarge)
        client.forget();
    if (isHeadLarge) {
        client.handle.reset();
        ::malloc_trim(0);
    }
}

} // namespace

ExchangeOutcome performExchange(const Exchange &exchange)
{
    const QString missing = missingFile(exchange);
    if (!missing.isEmpty())
        return {.response = curl::missingCertificateFile(missing)};

    curl::Connections &connections = curl::connectionsOfThread();
    Client &client = connections.clientFor(exchange);
    const Setup setup = curl::setupFor(exchange);
    curl::setUp(client, exchange, setup);

    Transfer transfer = transferOf(exchange, client);
    const curl::Mime parts = curl::partsOf(transfer.handle, exchange);
    connections.errorBuffer[0] = '\0';
    curl::setRequest(client, exchange, transfer, parts);
    const CURLcode code = carryOut(client, transfer);
    const http::Response response = responseOf(code, exchange, setup, transfer);
    prepareForNext(client, code, transfer, parts != nullptr);
    return outcomeOf(exchange, response, transfer);
}
