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

/// One PEM file, for tests too.
CertificateFinding checkPemFile(const QString &path);

} // namespace queuectl
