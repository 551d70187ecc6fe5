#include "shared/net/connections.h"

#include "shared/net/clientcertificate.h"
#include "shared/net/exchange.h"

#include <QFile>
#include <QThreadStorage>

#include <openssl/crypto.h>
#include <sys/stat.h>

namespace {

void initializeCurl()
{
    static const CURLcode initialized = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialized != CURLE_OK)
        qFatal("libcurl cannot be used: %s", curl_easy_strerror(initialized));
}

/// Identifies the file and its state, so that a replaced file is a different one.
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

} // namespace

namespace curl {

void Client::forget()
{
    curl_easy_reset(handle.get());
    setup.reset();
    url.clear();
    headers.clear();
    headerLines.reset();
    address.reset();
}

void Client::close()
{
    if (!handle)
        return;
    forget();
    handle.reset();
}

Connections::~Connections()
{
    plain.handle.reset();
    certified.handle.reset();
    // Frees OpenSSL's data of the thread, which closing the connections has created again.
    OPENSSL_thread_stop();
}

Client &Connections::clientFor(const Exchange &exchange)
{
    initializeCurl();
    const bool isCertified = exchange.isSecure() && !exchange.certificatePath.isEmpty();
    Client &client = isCertified ? certified : plain;
    if (isCertified) {
        const QByteArray identity = fileIdentity(exchange.certificatePath) + '\n'
                                    + fileIdentity(exchange.privateKeyPath) + '\n'
                                    + exchange.certificatePassword.toUtf8();
        if (identity != certifiedIdentity) {
            client.close();
            certifiedIdentity = identity;
            certifiedEnd =
                http::certificateEnd(exchange.certificatePath, exchange.certificatePassword);
        }
    }
    if (!client.handle)
        client.handle.reset(curl_easy_init());
    return client;
}

Connections &connectionsOfThread()
{
    // Qt destroys a thread's local data before it reports the thread as finished. So main() does
    // not return while a worker still closes connections, which needs OpenSSL. The storage itself
    // is never destroyed, because threads of others may outlive it.
    static auto &storage = *new QThreadStorage<Connections>;
    return storage.localData();
}

} // namespace curl
