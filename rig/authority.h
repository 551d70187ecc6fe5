#pragma once

#include "rig/certificates.h"

#include <QByteArray>
#include <QString>

namespace rig {

/// A certificate authority of the stand's own, made by the `openssl` tool in a folder where it
/// stays: its certificate, one for servers on 127.0.0.1 and one for clients. Throws Error when the
/// tool fails. Thread: any.
class Authority
{
public:
    /// Uses what is in the folder, and makes all of it, in less than a second, when something is
    /// missing.
    explicit Authority(const QString &folder);
    /// The one that all runs of this process share, in a temporary folder.
    static const Authority &shared();

    /// What a caller must trust, PEM.
    QString file() const;
    QByteArray certificate() const;
    QByteArray serverCertificate() const;
    QByteArray serverKey() const;

    /// Writes the client's certificate with its key: PKCS#12 under `password` when the path ends in
    /// .p12 or .pfx, otherwise PEM without protection.
    void writeClientCertificate(const QString &path, const QString &password) const;

private:
    void make() const;
    Certificates::Identity client() const;
    QString path(const QString &name) const { return folder + u'/' + name; }

    QString folder;
};

} // namespace rig
