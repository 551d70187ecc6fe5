#include "rig/authority.h"

#include "rig/error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace rig {

Authority::Authority(const QString &folder)
    : folder(folder)
{
    QDir().mkpath(folder);
    issue(u"authority"_s, {u"-subj"_s, u"/CN=Stand authority"_s});
    const QStringList issuer{u"-CA"_s,     folder + u"/authority.pem"_s,
                             u"-CAkey"_s,  folder + u"/authority.key"_s,
                             u"-addext"_s, u"basicConstraints=critical,CA:FALSE"_s};
    issue(u"server"_s, issuer
                           + QStringList{u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s,
                                         u"subjectAltName=IP:127.0.0.1"_s});
    issue(u"client"_s, issuer + QStringList{u"-subj"_s, u"/CN=Stand client"_s});
}

const Authority &Authority::shared()
{
    static const QTemporaryDir folder;
    static const Authority authority(folder.path());
    return authority;
}

QString Authority::file() const
{
    return folder + u"/authority.pem"_s;
}

QByteArray Authority::certificate() const
{
    return content(u"authority.pem"_s);
}

QByteArray Authority::serverCertificate() const
{
    return content(u"server.pem"_s);
}

QByteArray Authority::serverKey() const
{
    return content(u"server.key"_s);
}

void Authority::writeClientCertificate(const QString &path, const QString &password) const
{
    QDir().mkpath(QFileInfo(path).path());
    if (path.endsWith(u".p12"_s, Qt::CaseInsensitive)
        || path.endsWith(u".pfx"_s, Qt::CaseInsensitive)) {
        run({u"pkcs12"_s, u"-export"_s, u"-in"_s, folder + u"/client.pem"_s, u"-inkey"_s,
             folder + u"/client.key"_s, u"-passout"_s, u"pass:"_s + password, u"-out"_s, path});
        // The tool writes for its owner alone; a service may run under another account.
        QFile::setPermissions(path, QFile::permissions(path) | QFile::ReadGroup | QFile::ReadOther);
        return;
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)
        || file.write(content(u"client.pem"_s) + content(u"client.key"_s)) < 0)
        throw Error(u"%1: %2"_s.arg(path, file.errorString()));
}

void Authority::run(const QStringList &arguments) const
{
    QProcess tool;
    tool.start(u"openssl"_s, arguments, QIODevice::ReadOnly);
    if (!tool.waitForFinished(-1) || tool.exitStatus() != QProcess::NormalExit
        || tool.exitCode() != 0)
        throw Error(u"openssl %1: %2 %3"_s.arg(arguments.join(u' '), tool.errorString(),
                                               QString::fromUtf8(tool.readAllStandardError())));
}

void Authority::issue(const QString &name, const QStringList &arguments) const
{
    const QString certificate = u"%1/%2.pem"_s.arg(folder, name);
    if (QFile::exists(certificate))
        return;
    run(QStringList{u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                    u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-days"_s, u"365"_s,
                    u"-keyout"_s, u"%1/%2.key"_s.arg(folder, name), u"-out"_s, certificate}
        + arguments);
}

QByteArray Authority::content(const QString &name) const
{
    QFile file(folder + u'/' + name);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(u"%1: %2"_s.arg(file.fileName(), file.errorString()));
    return file.readAll();
}

} // namespace rig
