#include "handlers/common/certificates.h"

#include "shared/core/paths.h"

#include <log4qt/logger.h>

#include <QDir>
#include <QFile>
#include <QProcess>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QFile::Permissions ownerFile = QFile::ReadOwner | QFile::WriteOwner;
constexpr QFile::Permissions ownerFolder = ownerFile | QFile::ExeOwner;

bool isConverted(const QString &path, const QStringList &endings)
{
    return endings.isEmpty() || std::ranges::any_of(endings, [&path](const QString &ending) {
               return path.endsWith(ending);
           });
}

bool makeFolder(const QString &folder, Log4Qt::Logger &logger)
{
    if (!QDir().mkpath(folder)) {
        logger.error(u"Не удалось создать каталог для сертификатов %1"_s, folder);
        return false;
    }
    QFile::setPermissions(folder, ownerFolder);
    return true;
}

/// Runs the tool without a shell and without a terminal to ask questions on. True when it ended by
/// itself with exit code 0.
bool runTool(const QString &path, const QString &pem, const QString &password,
             const CertificateRules &rules)
{
    QProcess tool;
    QString source = u"pass:"_s + password;
    if (!rules.passwordVariable.isEmpty()) {
        // Whoever lists the processes of the till sees their arguments, but not their environment.
        source = u"env:"_s + rules.passwordVariable;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(rules.passwordVariable, password);
        tool.setProcessEnvironment(environment);
    }
    tool.setStandardInputFile(QProcess::nullDevice());
    tool.setStandardOutputFile(QProcess::nullDevice());
    tool.setStandardErrorFile(QProcess::nullDevice());
    tool.start(u"openssl"_s, QStringList{u"pkcs12"_s, u"-in"_s, path, u"-passin"_s, source,
                                         u"-out"_s, pem, u"-passout"_s, source}
                                 + rules.furtherArguments);
    if (!tool.waitForFinished(static_cast<int>(rules.timeLimit.count()))) {
        tool.kill();
        tool.waitForFinished(-1);
        return false;
    }
    return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

} // namespace

QString convertCertificate(Log4Qt::Logger &logger, const QString &path, const QString &password,
                           const CertificateRules &rules)
{
    if (!isConverted(path, rules.convertedEndings))
        return path;

    QFile source(path);
    // Qt complains on standard error about a file without a name.
    if (path.isEmpty() || !source.open(QIODevice::ReadOnly)) {
        logger.error(u"Ошибка чтения сертификата %1"_s, path);
        return {};
    }
    const QByteArray digest = QCryptographicHash::hash(source.readAll(), rules.digest).toHex();
    source.close();

    const QString folder = rootedPath(rules.folder);
    if (rules.isPrivate && !makeFolder(folder, logger))
        return {};
    const QString pem = u"%1/%2.pem"_s.arg(
        folder, QString(rules.fileName).replace(u"%1"_s, QString::fromLatin1(digest)));
    if (QFile::exists(pem))
        return pem;
    if (!runTool(path, pem, password, rules)) {
        if (rules.isPrivate) {
            logger.error(u"Ошибка генерации PEM-сертификата из %1"_s, path);
            QFile::remove(pem);
        } else {
            logger.error(u"Ошибка генерации сертификата"_s);
        }
        return {};
    }
    if (rules.isPrivate)
        QFile::setPermissions(pem, ownerFile);
    return pem;
}
