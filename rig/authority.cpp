#include "rig/authority.h"

#include "rig/error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

constexpr int validDays = 365;

const QStringList identityFiles{u"authority.pem"_s, u"authority.key"_s, u"server.pem"_s,
                                u"server.key"_s,    u"client.pem"_s,    u"client.key"_s};

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(u"%1: %2"_s.arg(path, file.errorString()));
    return file.readAll();
}

void copyFile(const QString &from, const QString &to)
{
    QFile::remove(to);
    QFile file(from);
    if (!file.copy(to))
        throw Error(u"%1: %2"_s.arg(to, file.errorString()));
}

} // namespace

Authority::Authority(const QString &folder)
    : folder(folder)
{
    const bool isMade =
        std::all_of(identityFiles.cbegin(), identityFiles.cend(),
                    [this](const QString &name) { return QFile::exists(path(name)); });
    if (!isMade)
        make();
}

const Authority &Authority::shared()
{
    static const QTemporaryDir folder;
    static const Authority authority(folder.path());
    return authority;
}

QString Authority::file() const
{
    return path(u"authority.pem"_s);
}

QByteArray Authority::certificate() const
{
    return fileContent(file());
}

QByteArray Authority::serverCertificate() const
{
    return fileContent(path(u"server.pem"_s));
}

QByteArray Authority::serverKey() const
{
    return fileContent(path(u"server.key"_s));
}

void Authority::writeClientCertificate(const QString &target, const QString &password) const
{
    QDir().mkpath(QFileInfo(target).path());
    if (target.endsWith(u".p12"_s, Qt::CaseInsensitive)
        || target.endsWith(u".pfx"_s, Qt::CaseInsensitive)) {
        Certificates::writePkcs12(client(), password, target);
        // The tool makes files readable only for their owner; the service may use another account.
        QFile::setPermissions(target,
                              QFile::permissions(target) | QFile::ReadGroup | QFile::ReadOther);
        return;
    }
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly)
        || file.write(fileContent(client().certificate) + fileContent(client().key)) < 0)
        throw Error(u"%1: %2"_s.arg(target, file.errorString()));
}

void Authority::make() const
{
    QDir().mkpath(folder);
    Certificates certificates(validDays);
    const Certificates::Identity issuer = certificates.authority(u"Stand authority"_s);
    const Certificates::Identity server = certificates.server(issuer, {u"IP:127.0.0.1"_s});
    const Certificates::Identity client = certificates.client(issuer, u"Stand client"_s);
    const QStringList made{issuer.certificate, issuer.key,         server.certificate,
                           server.key,         client.certificate, client.key};
    for (qsizetype index = 0; index < made.size(); ++index)
        copyFile(made[index], path(identityFiles[index]));
}

Certificates::Identity Authority::client() const
{
    return {path(u"client.pem"_s), path(u"client.key"_s)};
}

} // namespace rig
