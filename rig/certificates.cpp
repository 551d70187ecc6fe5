#include "rig/certificates.h"

#include "rig/error.h"

#include <QFile>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// Settings for `openssl ca`; `%1` is the folder of its database.
constexpr auto openSslSettings = R"([req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[ca]
default_ca = issuing
[issuing]
database = %1/index.txt
new_certs_dir = %1
rand_serial = yes
unique_subject = no
default_md = sha256
policy = anything
copy_extensions = copy
[anything]
commonName = supplied
)"_L1;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(u"%1: %2"_s.arg(path, file.errorString()));
    return file.readAll();
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw Error(u"%1: %2"_s.arg(path, file.errorString()));
}

QStringList newKey(const QString &path)
{
    return {u"-newkey"_s, u"ec"_s,      u"-pkeyopt"_s, u"ec_paramgen_curve:prime256v1"_s,
            u"-nodes"_s,  u"-keyout"_s, path};
}

} // namespace

Certificates::Certificates(int days)
    : days(QString::number(days))
{
    write(folder.filePath(u"openssl.cnf"_s), QString(openSslSettings).arg(folder.path()).toUtf8());
    write(folder.filePath(u"index.txt"_s), {});
}

Certificates::Identity Certificates::authority(const QString &name)
{
    const Identity identity{newPath(u"pem"_s), newPath(u"key"_s)};
    run(QStringList{u"req"_s, u"-x509"_s, u"-config"_s, folder.filePath(u"openssl.cnf"_s),
                    u"-extensions"_s, u"authority"_s, u"-subj"_s, u"/CN="_s + name, u"-days"_s,
                    days, u"-out"_s, identity.certificate}
        + newKey(identity.key));
    return identity;
}

Certificates::Identity Certificates::intermediate(const Identity &authority, const QString &name)
{
    return issue(authority, name, {}, {u"-days"_s, days, u"-extensions"_s, u"authority"_s});
}

Certificates::Identity Certificates::server(const Identity &authority, const QStringList &hosts)
{
    return issue(authority, u"server"_s, hosts, {u"-days"_s, days});
}

Certificates::Identity Certificates::expiredServer(const Identity &authority,
                                                   const QStringList &hosts)
{
    return issue(authority, u"server"_s, hosts,
                 {u"-startdate"_s, u"20200101000000Z"_s, u"-enddate"_s, u"20210101000000Z"_s});
}

Certificates::Identity Certificates::client(const Identity &authority, const QString &name)
{
    return issue(authority, name, {}, {u"-days"_s, days});
}

QString Certificates::revoke(const Identity &authority, const Identity &identity)
{
    run({u"ca"_s, u"-config"_s, folder.filePath(u"openssl.cnf"_s), u"-cert"_s,
         authority.certificate, u"-keyfile"_s, authority.key, u"-revoke"_s, identity.certificate});
    const QString question = newPath(u"ocsp"_s);
    const QString answer = newPath(u"ocsp"_s);
    run({u"ocsp"_s, u"-issuer"_s, authority.certificate, u"-cert"_s, identity.certificate,
         u"-reqout"_s, question});
    run({u"ocsp"_s, u"-index"_s, folder.filePath(u"index.txt"_s), u"-CA"_s, authority.certificate,
         u"-rsigner"_s, authority.certificate, u"-rkey"_s, authority.key, u"-reqin"_s, question,
         u"-respout"_s, answer});
    return answer;
}

QString Certificates::joined(const Identity &identity)
{
    return file(contentOf(identity.certificate) + contentOf(identity.key));
}

QString Certificates::chain(const QStringList &certificates)
{
    QByteArray content;
    for (const QString &certificate : certificates)
        content += contentOf(certificate);
    return file(content);
}

QString Certificates::pkcs12(const Identity &identity, const QString &password,
                             const QString &ending)
{
    const QString path = newPath(ending);
    writePkcs12(identity, password, path);
    return path;
}

void Certificates::writePkcs12(const Identity &identity, const QString &password,
                               const QString &path)
{
    run({u"pkcs12"_s, u"-export"_s, u"-in"_s, identity.certificate, u"-inkey"_s, identity.key,
         u"-out"_s, path, u"-passout"_s, u"pass:"_s + password});
}

QString Certificates::encryptedKey(const Identity &identity, const QString &password)
{
    const QString path = newPath(u"key"_s);
    run({u"pkey"_s, u"-in"_s, identity.key, u"-aes256"_s, u"-passout"_s, u"pass:"_s + password,
         u"-out"_s, path});
    return path;
}

QString Certificates::file(const QByteArray &content)
{
    const QString path = newPath(u"pem"_s);
    write(path, content);
    return path;
}

Certificates::Identity Certificates::issue(const Identity &authority, const QString &name,
                                           const QStringList &hosts, const QStringList &options)
{
    const Identity identity{newPath(u"pem"_s), newPath(u"key"_s)};
    const QString request = newPath(u"csr"_s);
    const QString settings = folder.filePath(u"openssl.cnf"_s);
    QStringList asking = {u"req"_s,   u"-new"_s,        u"-config"_s, settings,
                          u"-subj"_s, u"/CN="_s + name, u"-out"_s,    request};
    if (!hosts.isEmpty())
        asking += {u"-addext"_s, u"subjectAltName="_s + hosts.join(u',')};
    run(asking + newKey(identity.key));
    run(QStringList{u"ca"_s, u"-batch"_s, u"-notext"_s, u"-config"_s, settings, u"-cert"_s,
                    authority.certificate, u"-keyfile"_s, authority.key, u"-in"_s, request,
                    u"-out"_s, identity.certificate}
        + options);
    return identity;
}

void Certificates::run(const QStringList &arguments)
{
    QProcess openssl;
    openssl.start(u"openssl"_s, arguments, QIODevice::ReadOnly);
    if (!openssl.waitForFinished(-1) || openssl.exitStatus() != QProcess::NormalExit
        || openssl.exitCode() != 0)
        throw Error(u"openssl %1: %2 %3"_s.arg(arguments.join(u' '), openssl.errorString(),
                                               QString::fromUtf8(openssl.readAllStandardError())));
}

QString Certificates::newPath(const QString &ending)
{
    return folder.filePath(u"%1.%2"_s.arg(QString::number(++count), ending));
}

} // namespace rig
