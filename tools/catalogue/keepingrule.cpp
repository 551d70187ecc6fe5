#include "tools/catalogue/keepingrule.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace catalogue {

namespace {

using Rules = QList<const Outcome *>;

template <typename Condition>
Rules only(const Rules &rules, Condition condition)
{
    Rules some;
    std::ranges::copy_if(rules, std::back_inserter(some), condition);
    return some;
}

bool isHttpError(int status)
{
    return status > 0 && (status < 200 || status > 299);
}

/// The status of an HTTP error decides its kind, so a rule about all of them has these three.
bool isAboutHttpErrors(const Outcome &rule)
{
    return rule.kinds.contains(u"service"_s) && rule.kinds.contains(u"request"_s)
           && rule.kinds.contains(u"credentials"_s);
}

Rules keepingRules(const Type &type, const QString &kind)
{
    Rules rules;
    for (const Outcome &outcome : type.outcomes) {
        if (outcome.verdict == u"kept" && outcome.kinds.contains(kind))
            rules.append(&outcome);
    }
    return rules;
}

} // namespace

const Outcome *keepingRule(const Type &type, const Refusal &refusal)
{
    const Rules all = keepingRules(type, refusal.kind);
    const Rules named = only(all, [&refusal](const Outcome *rule) {
        return std::ranges::any_of(rule->reasons, [&refusal](const QString &reason) {
            return fits(reason, refusal.reason);
        });
    });
    if (!named.isEmpty())
        return named.size() == 1 ? named.first() : nullptr;

    const Rules unnamed = only(all, [](const Outcome *rule) { return rule->reasons.isEmpty(); });
    Rules rules = only(unnamed, [&refusal](const Outcome *rule) {
        return isAboutHttpErrors(*rule) == isHttpError(refusal.status);
    });
    // A type may have one rule for errors and contents. Beside rules with reasons it is not meant:
    // the reason is from another version.
    if (rules.isEmpty() && unnamed.size() == all.size())
        rules = unnamed;
    std::ranges::stable_sort(rules, {}, [](const Outcome *rule) { return rule->kinds.size(); });
    if (rules.isEmpty() || (rules.size() > 1 && rules[0]->kinds.size() == rules[1]->kinds.size()))
        return nullptr;
    return rules.first();
}

} // namespace catalogue
