#include "tools/queuectl/checks.h"

#include "tools/queuectl/controlport.h"
#include "tools/queuectl/logsettings.h"
#include "tools/queuectl/servicelog.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int maxPort = 65535;

} // namespace

QList<Check> examinePort()
{
    Findings findings(u"port"_s);
    const int number = controlPort();
    if (number < 1 || number > maxPort) {
        findings.error(text("%1 is no port", "%1 — не порт").arg(number));
        return findings.checks;
    }
    const PortState state = controlPortState();
    if (state == PortState::Service) {
        findings.ok(text("the service answers on 127.0.0.1:%1", "служба отвечает на 127.0.0.1:%1")
                        .arg(number));
        return findings.checks;
    }
    findings.error(
        state == PortState::Other
            ? text(
                  "something else than the service listens on 127.0.0.1:%1, or the service hangs (ss -ltnp)",
                  "на 127.0.0.1:%1 отвечает не служба, или служба зависла (ss -ltnp)")
                  .arg(number)
            : text(
                  "nobody listens on 127.0.0.1:%1, the service does not run (systemctl status queue)",
                  "на 127.0.0.1:%1 никто не отвечает, служба не запущена (systemctl status queue)")
                  .arg(number));
    return findings.checks;
}

QList<Check> examineLog()
{
    Findings findings(u"log"_s);
    const ServiceLog serviceLog = ServiceLog::read();
    if (serviceLog.state() == ServiceLog::State::Denied) {
        findings.warn(
            text("no rights: this account may not read the log or its settings %1",
                 "нет прав: эта учётная запись не может читать журнал или его настройки %1")
                .arg(serviceLog.file())
                .trimmed());
        return findings.checks;
    }
    const QString settings = logSettingsFile();
    if (QFileInfo::exists(settings)) {
        const QStringList reasons = refusalsOfLogSettings(settings);
        if (!reasons.isEmpty()) {
            findings.error(text("%1 is refused, the service logs to the journal: %2",
                                "%1 не принят, служба пишет в журнал systemd: %2")
                               .arg(settings, reasons.join(u"; "_s)));
            return findings.checks;
        }
        const QStringList files = logFilesOutOfReach(settings);
        for (const QString &file : files)
            findings.error(
                text("%1: the unit lets the service write below /tallocash alone, not into %2",
                     "%1: unit разрешает службе писать только в /tallocash, но не в %2")
                    .arg(settings, file));
    }
    if (!serviceLog.hasFile()) {
        findings.ok(text(
            "no log file is configured, the log is in the journal (journalctl -u queue); status, why and shape tell less without a file",
            "файл журнала не настроен, журнал в systemd (journalctl -u queue); status, why и shape без файла говорят меньше"));
        return findings.checks;
    }
    const QFileInfo info(serviceLog.file());
    if (!info.exists())
        findings.warn(text("there is no log file %1", "файла журнала %1 нет").arg(info.filePath()));
    else if (serviceLog.lines().isEmpty() && info.size() > 0)
        findings.warn(text("the lines of %1 do not follow its conversionPattern",
                           "строки %1 не соответствуют conversionPattern")
                          .arg(info.filePath()));
    else
        findings.ok(info.filePath());
    return findings.checks;
}

} // namespace queuectl
