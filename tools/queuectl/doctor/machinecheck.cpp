#include "tools/queuectl/doctor/checks.h"

#include "tools/queuectl/failids.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

#include <QProcess>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int toolTimeoutMs = 10'000;

} // namespace

QList<Check> examineOpenssl()
{
    Findings findings(u"openssl"_s);
    if (QStandardPaths::findExecutable(u"openssl"_s).isEmpty()) {
        findings.error(
            text("the tool openssl is not installed, no client certificate can be converted",
                 "программа openssl не установлена, сертификаты клиента не преобразуются"));
        return findings.checks;
    }
    QProcess tool;
    tool.start(u"openssl"_s, {u"version"_s});
    if (tool.waitForFinished(toolTimeoutMs) && tool.exitStatus() == QProcess::NormalExit
        && tool.exitCode() == 0) {
        findings.ok(QString::fromUtf8(tool.readAllStandardOutput()).trimmed());
        return findings.checks;
    }
    tool.kill();
    tool.waitForFinished();
    findings.error(text("the tool openssl does not run", "программа openssl не работает"));
    return findings.checks;
}

QList<Check> examineClock(const QDateTime &newestRow)
{
    Findings findings(u"clock"_s);
    const QDateTime now = QDateTime::currentDateTime();
    // A till with a flat battery starts with a date years ago, when every certificate is "not yet
    // valid".
    if (now.date().year() < 2025) {
        findings.error(text("the clock says %1", "часы показывают %1").arg(exactTime(now)));
        return findings.checks;
    }
    struct Witness
    {
        QString name;
        QDateTime time;
    };
    const Witness witnesses[] = {
        {text("the newest row", "новейшая строка"), newestRow},
        {text("the fail ids", "файл отказов"), readFailIds().savedAt},
    };
    bool isGood = true;
    for (const Witness &witness : witnesses) {
        if (!witness.time.isValid() || witness.time <= now.addSecs(60))
            continue;
        findings.warn(
            text("%1 is from the future (%2): the clock was set back, or the time zones differ",
                 "%1 из будущего (%2): часы перевели назад или часовые пояса различаются")
                .arg(witness.name, exactTime(witness.time)));
        isGood = false;
    }
    if (isGood)
        findings.ok(exactTime(now));
    return findings.checks;
}

} // namespace queuectl
