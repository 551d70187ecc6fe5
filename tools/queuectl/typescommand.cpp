#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

Report showTypes(const Call &call)
{
    Report report;
    if (call.arguments.isEmpty()) {
        QJsonArray records;
        const QStringList types = deliveredTypes();
        for (const QString &type : types)
            records.append(QJsonObject{{u"type"_s, type}});
        report.data = {{u"types"_s, records}};
        if (call.has(u"names"_s)) {
            for (const QString &type : types)
                report.line(type);
            return report;
        }
        report.table(u"types"_s, {{u"type"_s, text("Type", "Тип")}});
        return report;
    }
    requireDelivered(call.arguments.first());
    report.data = {{u"type"_s, call.arguments.first()}};
    report.facts({{u"type"_s, text("Type", "Тип")}});
    return report;
}

} // namespace queuectl
