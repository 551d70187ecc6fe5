#pragma once

#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

/// Prometheus' own checker, which the package prometheus of scripts/packages-fleet brings. The
/// tests pass with that of Debian 12 (2.42) and of Debian 13 (2.53).
namespace promtool {

/// Empty where it is not installed.
inline QString path()
{
    return QStandardPaths::findExecutable(QStringLiteral("promtool"));
}

/// The reason of a refusal, or an empty text. `input` is its standard input.
inline QString complaint(const QStringList &arguments, const QByteArray &input = {},
                         const QString &folder = {})
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    if (!folder.isEmpty())
        process.setWorkingDirectory(folder);
    process.start(path(), arguments);
    process.write(input);
    process.closeWriteChannel();
    constexpr int limitMs = 60'000;
    if (!process.waitForFinished(limitMs)) {
        process.kill();
        process.waitForFinished();
        return QStringLiteral("it does not end");
    }
    const QString said = QString::fromUtf8(process.readAll());
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    return said.isEmpty() ? QStringLiteral("it says nothing") : said;
}

} // namespace promtool
