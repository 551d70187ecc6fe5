#include "shared/core/paths.h"
#include "shared/text/escaping.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/servicelog.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSysInfo>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int tarTimeoutMs = 60'000;
constexpr qint64 logSeconds = 3600;

[[noreturn]] void failFile(const QFile &file)
{
    throw Failure(Failed, text("%1 cannot be written: %2", "%1 не записывается: %2")
                              .arg(file.fileName(), file.errorString()));
}

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        failFile(file);
}

void writeReport(const QString &folder, const QString &name, const Report &report)
{
    writeFile(u"%1/%2.txt"_s.arg(folder, name),
              withoutLongNumbers(maskedText(report.toText(false))).toUtf8());
    Report shared = report;
    shared.data = masked(report.data).toObject();
    writeFile(u"%1/%2.json"_s.arg(folder, name),
              withoutLongNumbers(QString::fromUtf8(shared.toJson())).toUtf8());
}

/// What a command says, or why it could not.
Report reportOf(Report (*command)(const Call &))
{
    try {
        return command(Call());
    } catch (const BasicException &exception) {
        Report report;
        report.data.insert(u"error"_s, exception.tr().ru());
        report.line(exception.tr().ru());
        return report;
    }
}

QByteArray lastHour()
{
    const ServiceLog log = ServiceLog::read();
    if (!log.hasFile())
        return text(
                   "no log file is configured; add the output of: journalctl -u queue --since -1h\n",
                   "файл журнала не настроен; приложите вывод: journalctl -u queue --since -1h\n")
            .toUtf8();
    const QDateTime start = QDateTime::currentDateTime().addSecs(-logSeconds);
    QByteArray result;
    const QList<LogLine> lines = log.lines();
    for (const LogLine &line : lines) {
        if (line.time.isValid() && line.time < start)
            continue;
        result +=
            withoutLongNumbers(
                u"%1 %2 [%3] %4\n"_s.arg(
                    line.time.toString(u"yyyy-MM-dd HH:mm:ss,zzz"_s), line.level, line.category,
                    escaping::escaped(maskedText(line.text), escaping::Newlines::Kept)))
                .toUtf8();
    }
    return result;
}

QByteArray versions()
{
    QString result;
    result += u"queue %1\n"_s.arg(QStringLiteral(QUEUE_VERSION));
    result += u"Qt %1\n"_s.arg(QString::fromLatin1(qVersion()));
    result += u"%1, kernel %2, %3\n"_s.arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion(),
                                           QSysInfo::currentCpuArchitecture());
    result += u"database %1\n"_s.arg(databasePlace().value(u"driver"_s).toString());
    result += u"made %1\n"_s.arg(QDateTime::currentDateTime().toString(Qt::ISODate));
    return result.toUtf8();
}

void pack(const QString &folder, const QString &name, const QString &archive)
{
    QProcess tar;
    tar.start(u"tar"_s, {u"-czf"_s, archive, u"-C"_s, folder, u"--"_s, name});
    const bool isDone = tar.waitForFinished(tarTimeoutMs)
                        && tar.exitStatus() == QProcess::NormalExit && tar.exitCode() == 0;
    if (isDone)
        return;
    const QString reason = tar.error() == QProcess::FailedToStart
                               ? tar.errorString()
                               : QString::fromUtf8(tar.readAllStandardError()).trimmed();
    if (tar.state() != QProcess::NotRunning) {
        tar.kill();
        tar.waitForFinished();
    }
    throw Failure(Failed,
                  text("The program tar did not make %1: %2", "Программа tar не создала %1: %2")
                      .arg(archive, reason));
}

} // namespace

Report makeBundle(const Call &call)
{
    const QString name =
        u"queue-support-"_s + QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    const QString archive =
        QFileInfo(call.value(u"output"_s, name + u".tar.gz"_s)).absoluteFilePath();
    QTemporaryDir temporary;
    const QString folder = temporary.filePath(name);
    writeReport(folder, u"doctor"_s, reportOf(examine));
    writeReport(folder, u"status"_s, reportOf(showStatus));
    writeReport(folder, u"shape"_s, reportOf(showShape));
    writeFile(folder + u"/log-last-hour.txt"_s, lastHour());
    writeFile(folder + u"/versions.txt"_s, versions());
    QStringList names{u"doctor"_s, u"status"_s, u"shape"_s, u"log-last-hour.txt"_s,
                      u"versions.txt"_s};
    QStringList settings = settingsFilePaths();
    settings.append(rootedPath(u"/tallocash/cash/queue/config/log4qt.properties"_s));
    for (const QString &path : std::as_const(settings)) {
        if (!QFileInfo(path).isReadable())
            continue;
        writeFile(folder + u"/settings"_s + QDir::cleanPath(path), maskedSettings(path).toUtf8());
        names.append(u"settings"_s + QDir::cleanPath(path));
    }
    // Made under its own eyes, and nobody else's.
    QFile made(archive);
    if (!made.open(QIODevice::WriteOnly | QIODevice::Truncate))
        failFile(made);
    made.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    made.close();
    pack(temporary.path(), name, archive);

    Report report;
    report.data = {{u"file"_s, archive},
                   {u"bytes"_s, QFileInfo(archive).size()},
                   {u"contents"_s, QJsonArray::fromStringList(names)}};
    report.line(
        text(
            "%1 is made. Passwords, tokens and card numbers in it are masked; look into it before you send it.",
            "Создан %1. Пароли, ключи и номера карт в нём скрыты; просмотрите его перед отправкой.")
            .arg(archive));
    return report;
}

} // namespace queuectl
