#pragma once

#include "shared/net/httpresponse.h"
#include "shared/net/transfer.h"

#include <QByteArray>
#include <QString>

#include <chrono>

struct Exchange;

/// Why no whole answer came.
namespace curl {

/// What a proxy answers that wants other credentials.
constexpr int proxyAuthenticationStatus = 407;

/// What is known of an exchange that failed.
struct Circumstances
{
    /// What libcurl gives for it. CURLE_PARTIAL_FILE for an answer that libcurl took and that is
    /// not whole.
    CURLcode code = CURLE_OK;
    /// libcurl's own words, which alone tell some causes apart.
    QByteArray detail;
    /// The system's number for a connection that could not be made.
    long systemError = 0;
    /// The proxy, as host:port; empty when the exchange went straight to the server.
    QString proxy;
    /// What the proxy answered to the request for a tunnel; 0 for nothing.
    long tunnelStatus = 0;
    /// A proxy makes a tunnel for such an exchange.
    bool isSecure = false;
    /// The connection to the server, or to the proxy, came about.
    bool isConnected = false;
    /// Some bytes of the request went out.
    bool isRequestSent = false;
    /// The server, with its port where the address names one.
    QString server;
    QString certificatePath;
    std::chrono::milliseconds timeout{0};
    /// The status that arrived ahead of the failure; 0 for none.
    int status = 0;
    Transfer transfer;
};

/// `proxy` is the one in use, empty for none. After curl_easy_perform(), before the handle is
/// reset.
Circumstances circumstancesOf(CURLcode code, const Transfer &transfer, const Exchange &exchange,
                              const QString &proxy);

http::Response failureFor(const Circumstances &circumstances);

/// The file of a client's certificate or key is not there.
http::Response missingCertificateFile(const QString &path);

} // namespace curl
