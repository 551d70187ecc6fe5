#include "engine/journal.h"

#include "engine/journalconnection.h"

#include <log4qt/logmanager.h>

#include <QDateTime>

using namespace Qt::StringLiterals;

namespace {

/// At this number of waiting messages the next write begins early, to save memory.
constexpr size_t earlyCount = 1000;
/// The most messages kept in memory, for the next write or while the file cannot be written.
constexpr size_t mostMessages = 2000;

} // namespace

Journal::Journal(const QString &path, const JournalLimits &limits, const JournalTiming &timing)
    : limits(limits)
    , timing(timing)
    , logger(Log4Qt::LogManager::logger(u"journal"_s))
    , path(path)
    , store(path)
    , thread([this](const std::stop_token &stop) { run(stop); })
{
}

Journal::~Journal() = default;

void Journal::take(const Outcome &outcome)
{
    bool isAwaited = false;
    {
        const std::scoped_lock lock(mutex);
        pending.types[outcome.type].add(outcome);
        if (pending.tried.size() < mostMessages)
            pending.add(outcome);
        else
            ++lost;
        isAwaited = std::exchange(isIdle, false) || pending.tried.size() == earlyCount;
    }
    if (isAwaited)
        changed.notify_one();
}

void Journal::note(const Fact &fact)
{
    bool isAwaited = false;
    {
        const auto now = Clock::now();
        const auto key = std::pair(fact.name, fact.subject);
        const std::scoped_lock lock(mutex);
        const auto known = noted.constFind(key);
        if (known != noted.constEnd() && now - *known < timing.factInterval)
            return;
        noted.insert(key, now);
        pending.facts.insert(key, fact);
        isAwaited = std::exchange(isIdle, false);
    }
    if (isAwaited)
        changed.notify_one();
}

void Journal::run(const std::stop_token &stop)
{
    bool isLast = false;
    while (!isLast) {
        await(stop);
        isLast = stop.stop_requested();
        collect();
        write();
        nextWrite = Clock::now() + (isFaulty ? timing.retryInterval : timing.interval);
    }
    for (const TriedMessage &tried : batch.tried)
        lostUntold += tried.attempts;
    tellLoss();
    store.close();
}

void Journal::await(const std::stop_token &stop)
{
    std::unique_lock lock(mutex);
    changed.wait_until(lock, stop, nextWrite,
                       [this] { return !isFaulty && pending.tried.size() >= earlyCount; });
    if (!batch.isEmpty() || isPruning)
        return;
    isIdle = pending.isEmpty();
    changed.wait(lock, stop, [this] { return !pending.isEmpty(); });
    isIdle = false;
}

void Journal::collect()
{
    JournalBatch later;
    {
        const std::scoped_lock lock(mutex);
        std::swap(later, pending);
        lostUntold += std::exchange(lost, 0);
    }
    batch.add(std::move(later));
    lostUntold += batch.shorten(mostMessages);
}

void Journal::write()
{
    if (batch.isEmpty() && !isPruning)
        return;
    try {
        try {
            writeToStore();
        } catch (const JournalFault &fault) {
            if (!fault.isDamage() || !putAside(fault.tr().ru()))
                throw;
            writeToStore();
        }
        tellSuccess();
    } catch (const JournalFault &fault) {
        tellFault(fault.tr().ru());
    }
}

void Journal::writeToStore()
{
    if (!batch.isEmpty())
        store.write(batch);
    batch = {};
    // Until pruning has succeeded once.
    isPruning = true;
    isPruning = store.prune(limits, QDateTime::currentDateTimeUtc());
}

bool Journal::putAside(const QString &reason)
{
    const auto now = Clock::now();
    if (now < nextPuttingAside)
        return false;
    const QString kept = store.putAside();
    if (kept.isEmpty())
        return false;
    nextPuttingAside = now + timing.puttingAsideInterval;
    logger->warn(
        u"Журнал доставки '%1' повреждён (%2), он сохранён под именем '%3', начат новый"_s.arg(
            path, reason, kept));
    return true;
}

void Journal::tellFault(const QString &reason)
{
    if (std::exchange(isFaulty, true))
        return;
    logger->warn(
        u"Журнал доставки '%1' не записывается (%2), доставка продолжается, запись повторяется каждые %3 сек."_s
            .arg(path, reason,
                 QString::number(
                     std::chrono::duration_cast<std::chrono::seconds>(timing.retryInterval)
                         .count())));
}

void Journal::tellSuccess()
{
    if (std::exchange(isFaulty, false))
        logger->info(u"Журнал доставки '%1' снова записывается"_s, path);
    tellLoss();
}

void Journal::tellLoss()
{
    if (lostUntold > 0)
        logger->warn(u"Попыток доставки, не попавших в журнал доставки: %1"_s, lostUntold);
    lostUntold = 0;
}
