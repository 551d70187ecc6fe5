#pragma once

#include <QByteArray>
#include <QString>

/// Whether libcurl goes to `host` without a proxy when `network:noProxy` holds `noProxy`.
///
/// libcurl itself is asked: its versions differ in what they know, and after an exchange it does
/// not tell which way it went. Nothing is sent and no name is looked up. Takes about ten
/// microseconds. Thread: any.
bool isReachedDirectly(const QString &host, const QString &noProxy);

/// The proxy that an exchange with `host` goes through under these values of `network:proxy` and
/// `network:noProxy`, as host:port without the account; empty when it goes straight to the server.
QString proxyInUse(const QString &host, const QString &proxy, const QString &noProxy);

/// The proxy that `network:proxy` names, as host:port without the account; empty for none.
QString proxyName(const QString &proxy);
/// Whether libcurl can read it; nobody is asked.
bool isUsableProxy(const QString &proxy);
/// Whether requests go to it in HTTP, not in SOCKS.
bool isHttpProxy(const QString &proxy);
