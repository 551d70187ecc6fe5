#pragma once

#include <QByteArray>
#include <QString>

namespace rig {

/// A certificate authority of the stand's own, made by the `openssl` tool in a folder where it
/// stays: its certificate, one for servers on 127.0.0.1 and one for clients. Throws Error when the
/// tool fails. Thread: any.
class Authority
{
public:
    /// Makes what is missing in the folder, in less than a second.
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
    void run(const QStringList &arguments) const;
    void issue(const QString &name, const QStringList &arguments) const;
    QByteArray content(const QString &name) const;

    QString folder;
};

} // namespace rig
