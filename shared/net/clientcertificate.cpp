#include "shared/net/clientcertificate.h"

#include <QFile>

#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

namespace {

constexpr qint64 maxCertificateFileSize = 1024 * 1024;

struct OpenSslDeleter
{
    void operator()(BIO *bytes) const { BIO_free(bytes); }
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
    void operator()(PKCS12 *container) const { PKCS12_free(container); }
    void operator()(X509 *certificate) const { X509_free(certificate); }
};
using Bytes = std::unique_ptr<BIO, OpenSslDeleter>;
using Certificate = std::unique_ptr<X509, OpenSslDeleter>;

Certificate fromPkcs12(BIO *bytes, const QString &password)
{
    const std::unique_ptr<PKCS12, OpenSslDeleter> container(d2i_PKCS12_bio(bytes, nullptr));
    EVP_PKEY *key = nullptr;
    X509 *certificate = nullptr;
    if (container)
        PKCS12_parse(container.get(), password.toUtf8().constData(), &key, &certificate, nullptr);
    const std::unique_ptr<EVP_PKEY, OpenSslDeleter> keyOwner(key);
    return Certificate(certificate);
}

Certificate fromPem(BIO *bytes)
{
    // Without a callback OpenSSL asks for the password of an encrypted block on the terminal.
    const auto noPassword = [](char *, int, int, void *) {
        return 0;
    };
    return Certificate(PEM_read_bio_X509(bytes, nullptr, noPassword, nullptr));
}

QDateTime endOf(const X509 *certificate)
{
    tm end = {};
    if (!certificate || ASN1_TIME_to_tm(X509_get0_notAfter(certificate), &end) != 1)
        return {};
    return QDateTime(QDate(end.tm_year + 1900, end.tm_mon + 1, end.tm_mday),
                     QTime(end.tm_hour, end.tm_min, end.tm_sec), Qt::UTC);
}

} // namespace

namespace http {

bool isPkcs12(const QString &path)
{
    return path.endsWith(u".p12", Qt::CaseInsensitive)
           || path.endsWith(u".pfx", Qt::CaseInsensitive);
}

QDateTime certificateEnd(const QString &path, const QString &password)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.read(maxCertificateFileSize);
    const Bytes bytes(BIO_new_mem_buf(content.constData(), static_cast<int>(content.size())));
    const Certificate certificate =
        isPkcs12(path) ? fromPkcs12(bytes.get(), password) : fromPem(bytes.get());
    // OpenSSL's error queue is per thread; left there, these errors would be reported for the next
    // exchange.
    ERR_clear_error();
    return endOf(certificate.get());
}

} // namespace http
