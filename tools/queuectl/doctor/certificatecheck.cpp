#include "tools/queuectl/doctor/checks.h"

#include "shared/core/paths.h"
#include "shared/net/networksettings.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QSslCertificate>
#include <QSslKey>

#include <set>
#include <utility>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int searchedPageRows = 500;
constexpr int maxMemberDepth = 4;

using State = Check::State;

Check finding(State state, const QString &what)
{
    return {state, u"certificates"_s, what};
}

/// Deliveries with this certificate fail.
Check bad(const QString &what)
{
    return finding(State::Error, what);
}

/// The path of a certificate as rows name it, and the password from the same object.
using NamedFile = std::pair<QString, QString>;

/// Members with a name like `certificate` and a path as value, with the password from the same
/// object.
void collectFiles(const QJsonObject &object, int depth, std::set<NamedFile> &files)
{
    QString password;
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString name = member.key().toLower();
        const bool isBetter =
            password.isEmpty() || name.contains(u"cert"_s) || name.contains(u"tls"_s);
        if (name.contains(u"pass"_s) && member->isString() && isBetter)
            password = member->toString();
    }
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString name = member.key().toLower();
        const QString value = member->toString();
        const bool isFile = (name.contains(u"cert"_s) || name.startsWith(u"tls"_s))
                            && !name.contains(u"pass"_s) && value.startsWith(u'/');
        if (isFile)
            files.insert({value, password});
        else if (member->isObject() && depth < maxMemberDepth)
            collectFiles(member->toObject(), depth + 1, files);
    }
}

/// Empty when the database does not answer; another check reports that.
std::set<NamedFile> filesOfRows()
{
    std::set<NamedFile> files;
    try {
        MessageRows rows;
        int after = -1;
        while (true) {
            const QList<Row> page = rows.page(QString(), after, searchedPageRows);
            for (const Row &row : page)
                collectFiles(row.object().value_or(QJsonObject()), 0, files);
            if (page.size() < searchedPageRows)
                break;
            after = page.last().id;
        }
    } catch (const BasicException &) {
        files.clear();
    }
    return files;
}

QStringList convertedFiles()
{
    QStringList result;
    QList<std::pair<QString, QString>> places;
    // The unit gives the service a /tmp of its own.
    const QString common = rootedPath(u"/tmp"_s);
    QStringList temporaries{common};
    const QStringList own =
        QDir(common).entryList({u"systemd-private-*-queue.service-*"_s}, QDir::Dirs);
    for (const QString &name : own)
        temporaries.append(common + u'/' + name + u"/tmp"_s);
    for (const QString &folder : std::as_const(temporaries)) {
        places.append({folder, u"queue_*.pem"_s});
        places.append({folder + u"/spasibo-certs"_s, u"*.pem"_s});
    }
    for (const auto &[folder, pattern] : std::as_const(places)) {
        const QDir directory(folder);
        const QStringList names = directory.entryList({pattern}, QDir::Files);
        for (const QString &name : names)
            result.append(directory.filePath(name));
    }
    return result;
}

/// Whether all of them are valid now, and until when.
Check judge(const QString &path, const QList<QSslCertificate> &chain)
{
    const QDateTime now = QDateTime::currentDateTime();
    QDateTime end;
    for (const QSslCertificate &certificate : chain) {
        if (certificate.effectiveDate() > now)
            return bad(
                text("%1 is valid from %2 on only", "%1 действует только с %2")
                    .arg(path, certificate.effectiveDate().toLocalTime().toString(Qt::ISODate)));
        if (!end.isValid() || certificate.expiryDate() < end)
            end = certificate.expiryDate();
    }
    const QString date = end.toLocalTime().toString(u"yyyy-MM-dd HH:mm"_s);
    if (end < now)
        return bad(text("%1 expired on %2", "срок %1 истёк %2").arg(path, date));
    if (now.daysTo(end) < soonDays)
        return finding(State::Warning,
                       text("%1 expires on %2, in %3 days", "срок %1 истекает %2, через %3 дн.")
                           .arg(path, date, QString::number(now.daysTo(end))));
    return finding(State::Ok, text("%1 is valid until %2", "%1 действует до %2").arg(path, date));
}

Check checkPemFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return bad(
            text("%1 cannot be read: %2", "%1 не читается: %2").arg(path, file.errorString()));
    const QList<QSslCertificate> chain = QSslCertificate::fromData(file.readAll(), QSsl::Pem);
    if (chain.isEmpty())
        return bad(text("%1 holds no certificate", "в %1 нет сертификата").arg(path));
    return judge(path, chain);
}

/// With a wrong password or an old cipher the end of validity cannot be read.
Check checkPkcs12File(const QString &path, const QString &password)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return bad(
            text("%1 cannot be read: %2", "%1 не читается: %2").arg(path, file.errorString()));
    QSslKey key;
    QSslCertificate certificate;
    QList<QSslCertificate> authorities;
    // The service uses the openssl tool, which may know older ciphers.
    if (!QSslCertificate::importPkcs12(&file, &key, &certificate, &authorities, password.toUtf8()))
        return finding(State::Warning,
                       text("%1 does not open with the password of the rows that name it",
                            "%1 не открывается паролем из строк, которые его называют")
                           .arg(path));
    return judge(path, {certificate});
}

} // namespace

QList<Check> examineCertificates()
{
    QList<Check> checks;
    const QString caFile = settings::network::caFile.value();
    if (!caFile.isEmpty())
        checks.append(checkPemFile(caFile));
    const std::set<NamedFile> files = filesOfRows();
    for (const auto &[path, password] : files) {
        const bool isPkcs12 = path.endsWith(u".p12"_s, Qt::CaseInsensitive)
                              || path.endsWith(u".pfx"_s, Qt::CaseInsensitive);
        if (!QFileInfo(path).isFile())
            checks.append(bad(text("the certificate %1 is missing, waiting rows need it",
                                   "нет сертификата %1, он нужен строкам очереди")
                                  .arg(path)));
        else
            checks.append(isPkcs12 ? checkPkcs12File(path, password) : checkPemFile(path));
    }
    const QStringList converted = convertedFiles();
    for (const QString &path : converted)
        checks.append(checkPemFile(path));
    if (checks.isEmpty())
        checks.append(finding(State::Ok, text("no waiting row and no setting names a certificate",
                                              "ни строки, ни настройки не называют сертификатов")));
    return checks;
}

} // namespace queuectl
