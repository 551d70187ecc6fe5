#include "handlers/common/certificates.h"

#include "shared/core/guarded.h"
#include "shared/core/inflight.h"
#include "shared/core/paths.h"

#include <log4qt/logger.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QProcess>

#include <algorithm>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// The mark of an unfinished file: the owner's execute bit.
constexpr mode_t unfinishedMode = S_IRWXU;
constexpr mode_t finishedMode = S_IRUSR | S_IWUSR;
constexpr mode_t folderMode = S_IRWXU;
constexpr mode_t allRights = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr mode_t othersMayWrite = S_IWGRP | S_IWOTH;

bool isConverted(const QString &path, const QStringList &endings)
{
    return endings.isEmpty() || std::ranges::any_of(endings, [&path](const QString &ending) {
               return path.endsWith(ending);
           });
}

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

std::optional<struct stat> statusOf(const QString &path)
{
    struct stat status = {};
    if (::lstat(native(path).constData(), &status) != 0)
        return std::nullopt;
    return status;
}

/// Other users may create files in /tmp first, and so choose the till's certificate. Returns the
/// reason not to use a file or folder; empty if there is none.
QString distrustReason(const struct stat &status)
{
    if (S_ISLNK(status.st_mode))
        return u"это символическая ссылка"_s;
    if (status.st_uid != ::geteuid())
        return u"принадлежит другому пользователю"_s;
    if ((status.st_mode & othersMayWrite) != 0)
        return u"открыт другим пользователям на запись"_s;
    if (S_ISREG(status.st_mode) && status.st_nlink > 1)
        return u"у файла есть второе имя (жёсткая ссылка)"_s;
    return {};
}

bool refuse(const QString &path, const QString &objection, Log4Qt::Logger &logger)
{
    logger.error(
        u"%1 не используется: %2. Выясните, кто его создал, и удалите: при следующей отправке служба создаст свой"_s
            .arg(path, objection));
    return false;
}

/// Whether only the owner of a file in the folder can replace it.
bool protectsFiles(const QString &folder, Log4Qt::Logger &logger)
{
    const std::optional<struct stat> status = statusOf(folder);
    if (!status || (status->st_mode & othersMayWrite) == 0 || (status->st_mode & S_ISVTX) != 0)
        return true;
    logger.error(
        u"Каталог %1 не используется: файлы в нём могут заменить другие пользователи. Исправьте права: chmod 1777 %1"_s
            .arg(folder));
    return false;
}

enum class Usability
{
    Usable,
    /// It could not be created.
    Failed,
    /// Other users can change it.
    Refused,
};

Usability makeFolder(const QString &folder, Log4Qt::Logger &logger)
{
    QDir().mkpath(QFileInfo(folder).path());
    const bool isMade = ::mkdir(native(folder).constData(), folderMode) == 0;
    const std::optional<struct stat> status = statusOf(folder);
    if (!isMade && status) {
        const QString objection = distrustReason(*status);
        if (!objection.isEmpty()) {
            refuse(folder, objection, logger);
            return Usability::Refused;
        }
    }
    if (!status || !S_ISDIR(status->st_mode)) {
        logger.error(u"Не удалось создать каталог для сертификатов %1"_s, folder);
        return Usability::Failed;
    }
    ::chmod(native(folder).constData(), folderMode);
    return Usability::Usable;
}

Usability prepareFolder(const QString &folder, bool isPrivate, Log4Qt::Logger &logger)
{
    if (!protectsFiles(isPrivate ? QFileInfo(folder).path() : folder, logger))
        return Usability::Refused;
    return isPrivate ? makeFolder(folder, logger) : Usability::Usable;
}

enum class Found
{
    Nothing,
    Ready,
    Unfinished,
    Refused,
};

Found lookAt(const QString &pem, Log4Qt::Logger &logger)
{
    const std::optional<struct stat> status = statusOf(pem);
    if (!status)
        return Found::Nothing;
    const QString objection = distrustReason(*status);
    if (!objection.isEmpty()) {
        refuse(pem, objection, logger);
        return Found::Refused;
    }
    return (status->st_mode & allRights) == unfinishedMode ? Found::Unfinished : Found::Ready;
}

/// One lock for each PEM file of the process, so that a type never uses a file that another one is
/// still writing.
std::shared_ptr<QMutex> conversionLock(const QString &pem)
{
    // Never destroyed: a worker may outlive main().
    static auto &locks = *new Guarded<QHash<QString, std::shared_ptr<QMutex>>>;
    const auto table = locks.lock();
    std::shared_ptr<QMutex> &lock = (*table)[pem];
    if (!lock)
        lock = std::make_shared<QMutex>();
    return lock;
}

/// Creates an empty file for the tool; false if a file exists or on an error.
bool reserve(const QString &pem)
{
    const int file = ::open(native(pem).constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, unfinishedMode);
    if (file < 0)
        return false;
    // The umask may have removed the mark.
    ::fchmod(file, unfinishedMode);
    ::close(file);
    return true;
}

/// On a full disk the tool writes part of the file and exits with code 0.
bool isCutOff(const QString &pem)
{
    QFile file(pem);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray content = file.readAll().trimmed();
    const QByteArray lastLine = content.mid(content.lastIndexOf('\n') + 1);
    return content.contains("-----BEGIN ")
           && (!lastLine.startsWith("-----END ") || !lastLine.endsWith("-----")
               || content.count("-----BEGIN ") != content.count("-----END "));
}

/// Keeps the mark; removes the file if the tool has written nothing.
void leaveUnfinished(const QString &pem)
{
    const std::optional<struct stat> status = statusOf(pem);
    if (status && status->st_size == 0)
        ::unlink(native(pem).constData());
    else if (status && S_ISREG(status->st_mode))
        ::chmod(native(pem).constData(), unfinishedMode);
}

/// Removes the mark after syncing the content. Other permission bits that the tool has set stay,
/// unless the file must be private to the service.
bool finish(const QString &pem, bool isPrivate)
{
    const int file = ::open(native(pem).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0)
        return true;
    struct stat status = {};
    // False only when the disk fails.
    bool isDone = ::fstat(file, &status) == 0 && ::fsync(file) == 0;
    if (isDone && status.st_size == 0)
        ::unlink(native(pem).constData());
    else if (isDone && (isPrivate || (status.st_mode & allRights) == unfinishedMode))
        isDone = ::fchmod(file, finishedMode) == 0;
    ::close(file);
    return isDone;
}

/// Runs the tool without a shell and without a terminal for questions. True if it exited with code
/// 0.
bool runTool(const QString &path, const QString &pem, const QString &password,
             const CertificateRules &rules)
{
    const inflight::CallGuard guard{rules.timeLimit};
    QProcess tool;
    QString source = u"pass:"_s + password;
    if (!rules.passwordVariable.isEmpty()) {
        // Other users can see the arguments of a process, but not its environment.
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

ConvertedCertificate makePem(const QString &path, const QString &pem, const QString &password,
                             const CertificateRules &rules, Log4Qt::Logger &logger)
{
    // A tool that survived a crash of the service still writes to the old file, not to this one.
    ::unlink(native(pem).constData());
    const bool isReserved = reserve(pem);
    // Somebody may have put a file there since it was looked at.
    if (!isReserved && lookAt(pem, logger) == Found::Refused)
        return {.isRefused = true};
    if (isReserved && runTool(path, pem, password, rules) && !isCutOff(pem)
        && finish(pem, rules.isPrivate))
        return {.pem = pem};
    if (rules.isPrivate) {
        logger.error(u"Ошибка генерации PEM-сертификата из %1"_s, path);
        ::unlink(native(pem).constData());
    } else {
        logger.error(u"Ошибка генерации сертификата"_s);
        leaveUnfinished(pem);
    }
    return {};
}

} // namespace

ConvertedCertificate convertCertificate(Log4Qt::Logger &logger, const QString &path,
                                        const QString &password, const CertificateRules &rules)
{
    if (!isConverted(path, rules.convertedEndings))
        return {.pem = path};

    QFile source(path);
    // Qt prints a warning for a file without a name.
    if (path.isEmpty() || !source.open(QIODevice::ReadOnly)) {
        logger.error(u"Ошибка чтения сертификата %1"_s, path);
        return {};
    }
    const QByteArray digest = QCryptographicHash::hash(source.readAll(), rules.digest).toHex();
    source.close();

    const QString folder = rootedPath(rules.folder);
    const Usability usability = prepareFolder(folder, rules.isPrivate, logger);
    if (usability != Usability::Usable)
        return {.isRefused = usability == Usability::Refused};
    const QString pem = u"%1/%2.pem"_s.arg(
        folder, QString(rules.fileName).replace(u"%1"_s, QString::fromLatin1(digest)));
    Found found = lookAt(pem, logger);
    if (found == Found::Nothing || found == Found::Unfinished) {
        const std::shared_ptr<QMutex> lock = conversionLock(pem);
        const QMutexLocker locker(lock.get());
        // Another type may have created it meanwhile.
        found = lookAt(pem, logger);
        if (found == Found::Nothing || found == Found::Unfinished)
            return makePem(path, pem, password, rules, logger);
    }
    if (found == Found::Refused)
        return {.isRefused = true};
    return {.pem = pem};
}
