#pragma once

#include "shared/net/curlhandles.h"
#include "shared/net/keptsockets.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>

#include <array>
#include <optional>

struct Exchange;

namespace curl {

/// Options that most exchanges of a client share.
struct Setup
{
    bool isSecure = false;
    QString proxy;
    QString noProxy;
    QString caFile;

    bool operator==(const Setup &other) const = default;
};

/// A libcurl handle with its current options. Most exchanges of a worker go to the same place as
/// the one before, with the same headers, so these are kept in libcurl's form.
struct Client
{
    List headerLines;
    Address address;
    /// Declared after the headers and the address that it borrows, so it is destroyed first.
    Handle handle;
    /// Scheme, host and port of the address.
    QByteArray host;
    /// The options that are set on the handle; empty if none.
    std::optional<Setup> setup;
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;

    /// Resets all options; connections stay open.
    void forget();
    /// Closes its connections.
    void close();
};

/// The connections of one thread. libcurl keeps connections per handle. Connections with a client
/// certificate have a handle of their own, which is destroyed when the certificate changes. So
/// neither a connection nor a TLS session is ever reused for another client.
struct Connections
{
    Connections() = default;
    Connections(const Connections &) = delete;
    ~Connections();

    /// The client for this exchange, with a valid handle.
    Client &clientFor(const Exchange &exchange);
    /// The expiry time of the last client certificate used, in UTC; invalid if the file cannot be
    /// read.
    QDateTime certificateEnd() const { return certifiedEnd; }

    /// Declared before the handles, since libcurl may write to it while it closes them.
    std::array<char, CURL_ERROR_SIZE> errorBuffer = {};
    KeptSockets sockets;

private:
    Client plain;
    Client certified;
    /// The files and the password of the client certificate in use, and its expiry time.
    QByteArray certifiedIdentity;
    QDateTime certifiedEnd;
};

/// The connections of the calling thread; destroyed when the thread ends.
Connections &connectionsOfThread();

} // namespace curl
