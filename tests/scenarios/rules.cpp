#include "tests/scenarios/rules.h"

#include "tools/catalogue/keepingrule.h"

#include <algorithm>

using namespace Qt::StringLiterals;

QStringList ruleFindings(const QString &title, const QList<rig::JournalRow> &journal)
{
    QStringList findings;
    const QString file = title.section(u": "_s, 0, 0);
    const QString scenario = title.section(u": "_s, 1);
    for (const rig::JournalRow &row : journal) {
        const catalogue::Type *type = catalogue::find(row.type);
        if (row.verdict != u"kept" || !type || file.section(u'/', -1) != row.type)
            continue;
        const catalogue::Outcome *rule =
            catalogue::keepingRule(*type, {row.kind, row.status, row.text});
        const bool isListed =
            rule && std::ranges::any_of(rule->scenarios, [&](const QString &pattern) {
                return catalogue::fits(pattern, scenario);
            });
        if (!isListed)
            findings.append(
                u"queuectl why tells another rule about message %1 (%2, status %3, '%4'): %5"_s.arg(
                    QString::number(row.messageId), row.kind, QString::number(row.status), row.text,
                    rule ? rule->when : u"none"_s));
    }
    return findings;
}
