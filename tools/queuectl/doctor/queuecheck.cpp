#include "tools/queuectl/doctor/checks.h"

#include "shared/core/basicexception.h"
#include "tools/queuectl/concerns.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/report.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

QList<Check> examineRows()
{
    Findings findings(u"rows"_s);
    QList<Concern> concerns;
    try {
        MessageRows table;
        concerns = concernsOf(table, Situation::read());
    } catch (const BasicException &) {
        // The check of the database has reported it.
        return findings.checks;
    }
    for (const Concern &concern : std::as_const(concerns))
        findings.warn(shortened(concern.type, usualWidth) + u": "_s + concern.text);
    if (concerns.isEmpty())
        findings.ok(text("every type is delivered, and no row waits for more than an hour",
                         "все типы доставляются, больше часа не ждёт ни одна строка"));
    return findings.checks;
}

} // namespace queuectl
