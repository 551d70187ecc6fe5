#include "shared/core/paths.h"
#include "tools/queuectl/bundlelogs.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/outputfile.h"
#include "tools/queuectl/progress.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"
#include "tools/queuectl/versions.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int tarTimeoutMs = 60'000;
/// What the progress counts: the files that take long, the others together, and the archive.
constexpr int partCount = 8;

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

QByteArray versions()
{
    QStringList lines = versionLines();
    lines.append(u"made %1"_s.arg(QDateTime::currentDateTime().toString(Qt::ISODate)));
    return (lines.join(u'\n') + u'\n').toUtf8();
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
    const QDateTime since = call.has(u"since"_s)
                                ? readTime(u"since"_s, call.value(u"since"_s), DayEnd::First)
                                : QDateTime::currentDateTime().addDays(-1);
    const QString name =
        u"queue-support-"_s + QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    const QString archive =
        QFileInfo(call.value(u"output"_s, name + u".tar.gz"_s)).absoluteFilePath();
    QTemporaryDir temporary;
    const QString folder = temporary.filePath(name);
    Progress progress(partCount);
    int done = 0;
    const auto begin = [&](const QString &part) {
        progress.show(done++, part);
    };
    begin(u"doctor"_s);
    writeReport(folder, u"doctor"_s, reportOf(examine));
    begin(u"status"_s);
    writeReport(folder, u"status"_s, reportOf(showStatus));
    begin(u"shape"_s);
    writeReport(folder, u"shape"_s, reportOf(showShape));
    begin(u"history"_s);
    writeFile(folder + u"/history.jsonl"_s, historySince(since));
    begin(text("log file", "файл журнала"));
    writeFile(folder + u"/log.txt"_s, logFileSince(since));
    begin(text("journal of systemd", "журнал systemd"));
    writeFile(folder + u"/systemd-log.txt"_s, systemdLogSince(since));
    begin(text("settings", "настройки"));
    writeFile(folder + u"/versions.txt"_s, versions());
    QStringList names{u"doctor"_s,  u"status"_s,          u"shape"_s,       u"history.jsonl"_s,
                      u"log.txt"_s, u"systemd-log.txt"_s, u"versions.txt"_s};
    QStringList settings = settingsFilePaths();
    settings.append(rootedPath(u"/tallocash/cash/queue/config/log4qt.properties"_s));
    for (const QString &path : std::as_const(settings)) {
        if (!QFileInfo(path).isReadable())
            continue;
        writeFile(folder + u"/settings"_s + QDir::cleanPath(path), maskedSettings(path).toUtf8());
        names.append(u"settings"_s + QDir::cleanPath(path));
    }
    begin(u"tar"_s);
    // Made under its own eyes, and nobody else's.
    QFile made(archive);
    if (!made.open(QIODevice::WriteOnly | QIODevice::Truncate))
        failFile(made);
    if (!isSpecialFile(archive))
        made.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    made.close();
    pack(temporary.path(), name, archive);
    progress.show(partCount);

    Report report;
    report.data = {{u"file"_s, archive},
                   {u"bytes"_s, QFileInfo(archive).size()},
                   {u"since"_s, jsonTime(since)},
                   {u"contents"_s, QJsonArray::fromStringList(names)}};
    report.line(
        text(
            "%1 is made. Passwords, tokens and card numbers in it are masked; look into it before you send it.",
            "Создан %1. Пароли, ключи и номера карт в нём скрыты; просмотрите его перед отправкой.")
            .arg(archive));
    return report;
}

} // namespace queuectl
