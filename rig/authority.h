#pragma once

#include "rig/certificates.h"

#include <QByteArray>
#include <QString>

namespace rig {

/// The stand's certificate authority, made with the `openssl` tool in a permanent folder: its
/// certificate, one for servers on 127.0.0.1 and one for clients. Throws Error when the tool fails.
/// Thread: any.
class Authority
{
public:
    /// Uses the files in the folder. If one is missing, creates all of them in less than a second.
    explicit Authority(const QString &folder);
    /// One authority in a temporary folder, shared by all runs of this process.
    static const Authority &shared();

    /// The CA certificate that callers must trust, PEM.
    QString file() const;
    QByteArray certificate() const;
    QByteArray serverCertificate() const;
    QByteArray serverKey() const;

    /// Writes the client's certificate and key: PKCS#12 with `password` if the path ends in .p12 or
    /// .pfx, otherwise PEM without a password.
    void writeClientCertificate(const QString &path, const QString &password) const;

private:
    void make() const;
    Certificates::Identity client() const;
    QString path(const QString &name) const { return folder + u'/' + name; }

    QString folder;
};

} // namespace rig
