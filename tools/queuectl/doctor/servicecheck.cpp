#include "tools/queuectl/doctor/checks.h"

#include "tools/queuectl/controlport.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/logsettings.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

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
                  "a program other than the service listens on 127.0.0.1:%1, or the service hangs (ss -ltnp)",
                  "на 127.0.0.1:%1 отвечает не служба, или служба зависла (ss -ltnp)")
                  .arg(number)
            : text(
                  "the port 127.0.0.1:%1 is closed, the service does not run (systemctl status queue)",
                  "порт 127.0.0.1:%1 закрыт, служба не запущена (systemctl status queue)")
                  .arg(number));
    return findings.checks;
}

QList<Check> examineLog()
{
    Findings findings(u"log"_s);
    const QString settings = logSettingsFile();
    const QString logged = logFile();
    for (const QString &path : {settings, logged}) {
        if (path.isEmpty() || fileAccess(path) != FileAccess::Denied)
            continue;
        findings.warn(
            text("no rights: this account cannot read the log or its settings %1",
                 "нет прав: эта учётная запись не может читать журнал или его настройки %1")
                .arg(path));
        return findings.checks;
    }
    if (QFileInfo::exists(settings)) {
        const QStringList reasons = refusalsOfLogSettings(settings);
        if (!reasons.isEmpty()) {
            findings.error(text("%1 is refused, the service logs to systemd: %2",
                                "%1 не принят, служба пишет в журнал systemd: %2")
                               .arg(settings, reasons.join(u"; "_s)));
            return findings.checks;
        }
        const QStringList files = logFilesOutOfReach(settings);
        for (const QString &file : files)
            findings.error(
                text("%1: the unit lets the service write below /tallocash only, not into %2",
                     "%1: юнит разрешает службе писать только в /tallocash, но не в %2")
                    .arg(settings, file));
    }
    if (logged.isEmpty())
        findings.ok(text("no log file is configured, the log goes to systemd (journalctl -u queue)",
                         "файл журнала не настроен, журнал в systemd (journalctl -u queue)"));
    else if (!QFileInfo::exists(logged))
        findings.warn(text("there is no log file %1", "файла журнала %1 нет").arg(logged));
    else
        findings.ok(logged);
    return findings.checks;
}

} // namespace queuectl
