#pragma once

#include <QByteArray>
#include <QString>

/// Whether libcurl connects to `host` without a proxy when `network:noProxy` is `noProxy`.
///
/// Asks libcurl itself: the rule differs between its versions, and libcurl does not report the
/// route of an exchange. Sends nothing and makes no name lookup. Takes about ten microseconds.
/// Thread: any.
bool isReachedDirectly(const QString &host, const QString &noProxy);

/// The proxy of an exchange with `host` for these values of `network:proxy` and `network:noProxy`,
/// as host:port without the account; empty for a direct connection.
QString proxyInUse(const QString &host, const QString &proxy, const QString &noProxy);

/// The proxy in `network:proxy`, as host:port without the account; empty for none.
QString proxyName(const QString &proxy);
/// Whether libcurl can parse it. Makes no connection.
bool isUsableProxy(const QString &proxy);
/// Whether the proxy's protocol is HTTP rather than SOCKS.
bool isHttpProxy(const QString &proxy);
