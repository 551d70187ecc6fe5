#include "tools/queuectl/bundlelogs.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/logsettings.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 maxBytes = 16 * 1024 * 1024;
constexpr int maxLines = 100'000;
constexpr int maxMessages = 20'000;
constexpr int journalctlTimeoutMs = 60'000;
const QString logTimeForm = u"yyyy-MM-dd HH:mm:ss"_s;

QByteArray sentence(const QString &text)
{
    return escaping::escaped(text).toUtf8() + '\n';
}

QByteArray shared(const QString &line)
{
    const QString plain = maskedText(escaping::unescaped(line));
    return (escaping::escaped(withoutLongNumbers(plain)) + u'\n').toUtf8();
}

QByteArray tail(const QString &path, qint64 bytes)
{
    QFile file(path);
    if (path.isEmpty() || bytes <= 0 || !file.open(QIODevice::ReadOnly))
        return {};
    if (file.size() <= bytes)
        return file.readAll();
    file.seek(file.size() - bytes);
    // The first line is cut off.
    file.readLine();
    return file.readAll();
}

/// The file that was the log before it was rolled over, or an empty text.
QString formerFile(const QString &path)
{
    const QFileInfo info(path);
    const QFileInfoList former =
        info.dir().entryInfoList({info.fileName() + u".*"_s}, QDir::Files, QDir::Time);
    for (const QFileInfo &file : former) {
        if (!file.fileName().endsWith(u".gz"_s))
            return file.filePath();
    }
    return {};
}

} // namespace

QByteArray logFileSince(const QDateTime &since)
{
    const QString path = logFile();
    if (path.isEmpty())
        return sentence(text("no log file is configured", "файл журнала не настроен"));
    QFile probe(path);
    if (!probe.open(QIODevice::ReadOnly))
        return sentence(
            text("%1 cannot be read: %2", "%1 не читается: %2").arg(path, probe.errorString()));
    const QByteArray current = tail(path, maxBytes);
    const QByteArray former = tail(formerFile(path), maxBytes - current.size());
    const QStringList lines = QString::fromUtf8(former + current).split(u'\n', Qt::SkipEmptyParts);
    // A log whose lines begin in another way is taken whole. Further lines of an event have no
    // time.
    const auto timeOf = [](const QString &line) {
        return QDateTime::fromString(line.left(logTimeForm.size()), logTimeForm);
    };
    QByteArray result;
    bool isTaken = true;
    for (const QString &line : lines) {
        const QDateTime time = timeOf(line);
        if (time.isValid())
            isTaken = time >= since;
        if (isTaken)
            result += shared(line);
    }
    return result;
}

QByteArray systemdLogSince(const QDateTime &since)
{
    QProcess tool;
    tool.start(u"journalctl"_s, {u"--unit=queue"_s, u"--since=@%1"_s.arg(since.toSecsSinceEpoch()),
                                 u"--output=short-iso"_s, u"--no-pager"_s, u"--quiet"_s,
                                 u"--lines=%1"_s.arg(maxLines)});
    const bool isDone = tool.waitForFinished(journalctlTimeoutMs)
                        && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
    const QByteArray output = tool.readAllStandardOutput().right(maxBytes);
    if (!isDone) {
        const QString reason =
            tool.error() == QProcess::FailedToStart
                ? tool.errorString()
                : QString::fromUtf8(tool.readAllStandardError()).trimmed().left(1000);
        if (tool.state() != QProcess::NotRunning) {
            tool.kill();
            tool.waitForFinished();
        }
        return sentence(
            text("the journal of systemd cannot be read: %1", "журнал systemd не читается: %1")
                .arg(reason));
    }
    if (output.trimmed().isEmpty())
        return sentence(text("the journal of systemd has no lines of the service, or this account "
                             "may not read them",
                             "в журнале systemd нет строк службы, или эта учётная запись не может "
                             "их читать"));
    QByteArray result;
    const QStringList lines = QString::fromUtf8(output).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines)
        result += shared(line);
    return result;
}

QByteArray historySince(const QDateTime &since)
{
    JournalFile journal;
    JournalFilter filter;
    filter.since = since;
    filter.limit = maxMessages;
    const QDateTime now = QDateTime::currentDateTime();
    QByteArray result;
    int count = 0;
    journal.entries(filter, [&](const JournalEntry &entry) {
        // The statement has one more than the limit.
        if (++count > maxMessages)
            return false;
        const QJsonDocument line(withOrigin(entry.toJson(), now));
        result +=
            escaping::escapedJson(
                withoutLongNumbers(QString::fromUtf8(line.toJson(QJsonDocument::Compact))).toUtf8())
            + '\n';
        return true;
    });
    if (journal.state() != JournalFile::State::Read)
        return sentence(journal.why());
    return result;
}

} // namespace queuectl
