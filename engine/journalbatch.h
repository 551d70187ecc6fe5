#pragma once

#include "engine/outcome.h"

#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QString>

#include <array>
#include <utility>
#include <vector>

/// One message and its attempts since the last write.
struct TriedMessage
{
    /// The last attempt.
    Outcome outcome;
    /// When the first of these attempts began.
    QDateTime first;
    int attempts = 1;
};

/// What the attempts of one type have come to since the last write. Times are milliseconds since
/// 1970, UTC.
struct TypeTally
{
    static constexpr size_t verdictCount = static_cast<size_t>(Verdict::Kept) + 1;
    static constexpr size_t kindCount = static_cast<size_t>(http::FailureKind::Service) + 1;

    /// By verdict and kind of failure.
    std::array<std::array<qint64, kindCount>, verdictCount> counts = {};
    /// 0: no message was delivered.
    qint64 lastDelivered = 0;
    /// When the first message stayed after the last one that was finished with; 0: none has.
    qint64 failingSince = 0;
    /// A message was finished with, which ends a failure from before.
    bool isFinishing = false;

    void add(const Outcome &outcome);
    void add(const TypeTally &later);
};

/// What is written in one transaction.
struct JournalBatch
{
    /// In the order in which they were first tried.
    std::vector<TriedMessage> tried;
    QHash<QString, TypeTally> types;
    /// By name and subject.
    QMap<std::pair<QString, QString>, Fact> facts;

    bool isEmpty() const { return tried.empty() && types.isEmpty() && facts.isEmpty(); }
    /// The row of an attempt; not its tally.
    void add(const Outcome &outcome);
    /// A batch that came together after this one.
    void add(JournalBatch &&later);
    /// With more than `most` messages, puts the attempts of each together and leaves out what is
    /// still too much. Returns how many attempts were left out.
    qint64 shorten(size_t most);
};
