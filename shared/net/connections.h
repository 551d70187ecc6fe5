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

/// What the exchanges of a client mostly have in common.
struct Setup
{
    bool isSecure = false;
    QString proxy;
    QString noProxy;
    QString caFile;

    bool operator==(const Setup &other) const = default;
};

/// A handle of libcurl and what it is set up for. Most exchanges of a worker go where the one
/// before went, with the same headers, so these are kept in the form that libcurl takes.
struct Client
{
    List headerLines;
    Address address;
    /// Borrows the lines and the address above, so it ends first.
    Handle handle;
    /// Scheme, host and port of the address.
    QByteArray host;
    /// What the handle is set up for; nothing when it is not.
    std::optional<Setup> setup;
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;

    /// Takes back whatever was set; the connections stay.
    void forget();
    /// Closes its connections.
    void close();
};

/// The connections of one thread. libcurl keeps them in the handle that made them. Those that were
/// opened with a client certificate have a handle of their own, which ends with its certificate, so
/// neither a connection nor a TLS session can ever speak for another client.
struct Connections
{
    Connections() = default;
    Connections(const Connections &) = delete;
    ~Connections();

    /// The client for this exchange; its handle is there.
    Client &clientFor(const Exchange &exchange);
    /// When the certificate of the last exchange that had one ends, in UTC; invalid when its file
    /// does not tell.
    QDateTime certificateEnd() const { return certifiedEnd; }

    /// Before the handles, since libcurl may write into it while it closes those.
    std::array<char, CURL_ERROR_SIZE> errorBuffer = {};
    KeptSockets sockets;

private:
    Client plain;
    Client certified;
    /// The files and the password that the client was made with, and what they say.
    QByteArray certifiedIdentity;
    QDateTime certifiedEnd;
};

/// Those of the calling thread, which end with it.
Connections &connectionsOfThread();

} // namespace curl
