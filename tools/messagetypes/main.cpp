#include "tools/catalogue/catalogue.h"
#include "tools/messagetypes/stories.h"
#include "tools/stand/scenarioerror.h"

#include <cstdio>

namespace {

QStringList gapsOfAllTypes()
{
    QStringList gaps;
    try {
        for (const catalogue::Type &type : catalogue::types())
            gaps += stories::gaps(type, QStringLiteral(SCENARIOS));
    } catch (const stand::ScenarioError &error) {
        gaps.append(error.text());
    }
    return gaps;
}

} // namespace

/// Writes the page about the message types to standard output. Fails while an outcome on it is not
/// asserted by a scenario of the real program.
int main()
{
    const QStringList gaps = gapsOfAllTypes();
    for (const QString &gap : gaps)
        std::fprintf(stderr, "%s\n", qPrintable(gap));
    if (!gaps.isEmpty())
        return 1;
    const QByteArray page = catalogue::toMarkdown().toUtf8();
    const bool isWritten =
        std::fwrite(page.constData(), 1, static_cast<size_t>(page.size()), stdout)
            == static_cast<size_t>(page.size())
        && std::fflush(stdout) == 0;
    return isWritten ? 0 : 1;
}
