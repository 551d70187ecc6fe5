#include "engine/journalbatch.h"

#include <iterator>
#include <map>
#include <tuple>
#include <utility>

namespace {

/// Attempts with equal keys belong to one message.
auto messageKey(const Outcome &outcome)
{
    return std::tuple(outcome.id, outcome.type, outcome.card, outcome.reference);
}

} // namespace

void TypeTally::add(const Outcome &outcome)
{
    const qint64 time = outcome.begun.toMSecsSinceEpoch();
    ++counts.at(static_cast<size_t>(outcome.verdict)).at(static_cast<size_t>(outcome.kind));
    if (outcome.verdict == Verdict::Delivered)
        lastDelivered = time;
    if (outcome.verdict != Verdict::Kept) {
        isFinishing = true;
        failingSince = 0;
    } else if (failingSince == 0) {
        failingSince = time;
    }
}

void TypeTally::add(const TypeTally &later)
{
    for (size_t verdict = 0; verdict < counts.size(); ++verdict) {
        for (size_t kind = 0; kind < counts[verdict].size(); ++kind)
            counts[verdict][kind] += later.counts[verdict][kind];
    }
    if (later.lastDelivered != 0)
        lastDelivered = later.lastDelivered;
    if (later.isFinishing) {
        isFinishing = true;
        failingSince = later.failingSince;
    } else if (failingSince == 0) {
        failingSince = later.failingSince;
    }
}

void JournalBatch::add(const Outcome &outcome)
{
    tried.push_back({outcome, outcome.begun, 1});
}

void JournalBatch::add(JournalBatch &&later)
{
    if (isEmpty()) {
        *this = std::move(later);
        return;
    }
    tried.insert(tried.end(), std::make_move_iterator(later.tried.begin()),
                 std::make_move_iterator(later.tried.end()));
    for (const auto &[type, tally] : std::as_const(later.types).asKeyValueRange())
        types[type].add(tally);
    facts.insert(later.facts);
}

qint64 JournalBatch::shorten(size_t most)
{
    if (tried.size() <= most)
        return 0;
    std::map<decltype(messageKey({})), size_t> places;
    std::vector<TriedMessage> shorter;
    qint64 left = 0;
    for (TriedMessage &next : tried) {
        const auto known = places.find(messageKey(next.outcome));
        if (known != places.end()) {
            TriedMessage &former = shorter[known->second];
            former.outcome = std::move(next.outcome);
            former.attempts += next.attempts;
        } else if (shorter.size() < most) {
            places.emplace(messageKey(next.outcome), shorter.size());
            shorter.push_back(std::move(next));
        } else {
            left += next.attempts;
        }
    }
    tried = std::move(shorter);
    return left;
}
