#include "tools/queuectl/command.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/metrics.h"
#include "tools/queuectl/terminal.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

ExitCode exitCodeOf(const Measurement &measurement)
{
    if (!measurement.hasDatabase)
        return NoDatabase;
    if (!measurement.hasService)
        return NoService;
    return measurement.hasJournal || !JournalFile::isEnabled() ? Done : Found;
}

} // namespace

Report showMetrics(const Call &call)
{
    const Measurement measurement = measure();
    Report report;
    report.exitCode = exitCodeOf(measurement);
    if (call.isJson) {
        report.data = {{u"metrics"_s, metricsJson(measurement.metrics)}};
        return report;
    }
    print(metricsText(measurement.metrics,
                      call.has(u"openmetrics"_s) ? Exposition::OpenMetrics : Exposition::Text));
    report.isPrinted = true;
    return report;
}

} // namespace queuectl
