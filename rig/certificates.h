#pragma once

#include <QStringList>
#include <QTemporaryDir>

namespace rig {

/// Creates certificates and keys with the openssl tool in a temporary folder, which is deleted with
/// the object. Throws Error when the tool fails.
class Certificates
{
public:
    /// Two PEM files.
    struct Identity
    {
        QString certificate;
        QString key;
    };

    /// Certificates are valid from now on for `days` days.
    explicit Certificates(int days = 2);

    /// A self-signed certificate authority.
    Identity authority(const QString &name);
    /// An intermediate authority.
    Identity intermediate(const Identity &authority, const QString &name);
    /// A server's certificate for `hosts`, such as "IP:127.0.0.1" or "DNS:localhost".
    Identity server(const Identity &authority, const QStringList &hosts);
    /// A server's certificate that expired years ago.
    Identity expiredServer(const Identity &authority, const QStringList &hosts);
    Identity client(const Identity &authority, const QString &name);
    /// Revokes a certificate. Returns the file of the authority's OCSP response, which a server can
    /// staple.
    QString revoke(const Identity &authority, const Identity &identity);

    /// Certificate and key in one PEM file.
    QString joined(const Identity &identity);
    /// Several certificates in one PEM file, in this order.
    QString chain(const QStringList &certificates);
    /// Certificate and key in one PKCS#12 file; `ending` is the file's suffix.
    QString pkcs12(const Identity &identity, const QString &password,
                   const QString &ending = QStringLiteral("p12"));
    /// The same at a given path.
    static void writePkcs12(const Identity &identity, const QString &password, const QString &path);
    /// The encrypted key in a PEM file.
    QString encryptedKey(const Identity &identity, const QString &password);
    /// A file with this content.
    QString file(const QByteArray &content);

private:
    Identity issue(const Identity &authority, const QString &name, const QStringList &hosts,
                   const QStringList &options);
    static void run(const QStringList &arguments);
    QString newPath(const QString &ending);

    QTemporaryDir folder;
    const QString days;
    int count = 0;
};

} // namespace rig
