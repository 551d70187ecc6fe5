#include "app/dailyreport.h"

#include "shared/core/currenttime.h"
#include "shared/core/mockfactory.h"

#include <log4qt/logmanager.h>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

QDateTime currentTime()
{
    return MockFactory<CurrentTime>::create()->currentDateTime();
}

} // namespace

DailyReport::DailyReport(std::shared_ptr<OutcomeSink> next)
    : next(std::move(next))
    , since(currentTime())
    , logger(Log4Qt::LogManager::logger(u"outcome"_s))
{
}

void DailyReport::take(const Outcome &outcome)
{
    {
        const auto types = counted.lock();
        Counts &counts = (*types)[outcome.type];
        switch (outcome.verdict) {
        case Verdict::Delivered:
            ++counts.delivered;
            break;
        case Verdict::Dropped:
            ++counts.dropped;
            break;
        case Verdict::Kept:
            ++counts.failed;
            break;
        }
    }
    if (next)
        next->take(outcome);
}

void DailyReport::note(const Fact &fact)
{
    if (next)
        next->note(fact);
}

void DailyReport::reportIfDue()
{
    const QDateTime now = currentTime();
    if (now.date() != since.date())
        report(takeCounts(), now);
}

void DailyReport::reportRest()
{
    const Types types = takeCounts();
    if (!types.isEmpty())
        report(types, currentTime());
}

DailyReport::Types DailyReport::takeCounts()
{
    const auto types = counted.lock();
    return std::exchange(*types, {});
}

void DailyReport::report(const Types &types, const QDateTime &now)
{
    Counts all;
    for (const Counts &counts : types)
        all.add(counts);
    logger->info(u"Итоги с %1: %2"_s.arg(since.toString(u"yyyy-MM-dd HH:mm"_s),
                                         types.isEmpty() ? u"сообщений не было"_s : describe(all)));
    for (const auto &[type, counts] : types.asKeyValueRange())
        logger->info(u"  %1: %2"_s.arg(type, describe(counts)));
    since = now;
}

QString DailyReport::describe(const Counts &counts)
{
    return u"доставлено %1, снято с доставки %2, неудачных попыток %3"_s.arg(
        QString::number(counts.delivered), QString::number(counts.dropped),
        QString::number(counts.failed));
}

void DailyReport::Counts::add(const Counts &other)
{
    delivered += other.delivered;
    dropped += other.dropped;
    failed += other.failed;
}
