#include "tools/queuectl/doctor/doctor.h"

#include "tools/queuectl/doctor/checks.h"
#include "tools/queuectl/doctor/journalchecks.h"

namespace queuectl {

QList<Check> runChecks()
{
    QList<Check> checks = examineSettings();
    const DatabaseChecks database = examineDatabase();
    checks += database.checks;
    checks += examineRights();
    checks += examineOpenssl();
    checks += examineClock(database.newestRow);
    checks += examinePort();
    checks += examineCertificates();
    checks += examineLog();
    checks += checkJournal();
    checks += examineRows();
    return checks;
}

} // namespace queuectl
