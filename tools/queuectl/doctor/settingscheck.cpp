#include "tools/queuectl/doctor/checks.h"

#include "tools/queuectl/doctor/networkchecks.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

Check::State stateOf(SettingFault::Severity severity)
{
    switch (severity) {
    case SettingFault::Severity::Note:
        return Check::State::Ok;
    case SettingFault::Severity::Warning:
        return Check::State::Warning;
    case SettingFault::Severity::Error:
        break;
    }
    return Check::State::Error;
}

} // namespace

QList<Check> examineSettings()
{
    QList<Check> checks;
    bool isGood = true;
    const QList<SettingFault> faults = checkSettings() + checkNetworkSettings();
    for (const SettingFault &fault : faults) {
        const Check::State state = stateOf(fault.severity);
        const QString place = fault.line > 0
                                  ? u"%1:%2: "_s.arg(fault.file, QString::number(fault.line))
                                  : fault.file + u": "_s;
        checks.append({state, u"settings"_s, place + fault.text, fault.file, fault.line});
        isGood &= state == Check::State::Ok;
    }
    if (isGood)
        checks.append(
            {Check::State::Ok, u"settings"_s,
             text("files read: %1, nothing is wrong in them", "прочитано файлов: %1, замечаний нет")
                 .arg(settingsFilePaths().size())});
    return checks;
}

} // namespace queuectl
