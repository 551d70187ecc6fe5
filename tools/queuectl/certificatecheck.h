#pragma once

#include <QList>
#include <QString>

namespace queuectl {

struct CertificateFinding
{
    bool isGood = false;
    /// Deliveries fail with it.
    bool isFatal = false;
    QString text;
};

/// Looks at the certificates that settings and waiting rows name, and at those that the service has
/// converted: whether each can be read, and until when it holds.
QList<CertificateFinding> checkCertificates();

/// One PEM file.
CertificateFinding checkPemFile(const QString &path);
/// One PKCS#12 file. With a wrong password, or an old cipher, its end cannot be told.
CertificateFinding checkPkcs12File(const QString &path, const QString &password);

} // namespace queuectl
