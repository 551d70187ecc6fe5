#pragma once

#include "shared/net/httpresponse.h"
#include "shared/net/transfer.h"

#include <QByteArray>
#include <QString>

#include <chrono>

struct Exchange;

/// Why an exchange has no complete answer.
namespace curl {

/// A proxy's status for missing or wrong credentials.
constexpr int proxyAuthenticationStatus = 407;

/// The facts about a failed exchange.
struct Circumstances
{
    /// libcurl's code; CURLE_PARTIAL_FILE for an answer that libcurl accepted although it is
    /// truncated.
    CURLcode code = CURLE_OK;
    /// libcurl's error text, which alone distinguishes some causes.
    QByteArray detail;
    /// The errno of a failed connection.
    long systemError = 0;
    /// The proxy as host:port; empty for a direct exchange.
    QString proxy;
    /// The proxy's answer to CONNECT; 0 without one.
    long tunnelStatus = 0;
    /// An https exchange; over a proxy it uses CONNECT.
    bool isSecure = false;
    /// The connection to the server, or to the proxy, was established.
    bool isConnected = false;
    /// Some bytes of the request were sent.
    bool isRequestSent = false;
    /// The server, with its port if the address contains one.
    QString server;
    QString certificatePath;
    std::chrono::milliseconds timeout{0};
    /// The status that was received before the failure; 0 for none.
    int status = 0;
    Transfer transfer;
};

/// `proxy`: the proxy in use, empty for none. Call after curl_easy_perform(), before the handle is
/// reset.
Circumstances circumstancesOf(CURLcode code, const Transfer &transfer, const Exchange &exchange,
                              const QString &proxy);

http::Response failureFor(const Circumstances &circumstances);

/// The failure for a missing certificate or key file.
http::Response missingCertificateFile(const QString &path);

} // namespace curl
