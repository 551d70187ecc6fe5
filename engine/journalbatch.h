#pragma once

#include "engine/outcome.h"

#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QString>

#include <array>
#include <utility>
#include <vector>

/// A message with its attempts since the last write.
struct TriedMessage
{
    /// The last attempt.
    Outcome outcome;
    /// When the first of these attempts began.
    QDateTime first;
    int attempts = 1;
};

/// The results of one type since the last write. Times are milliseconds since 1970, UTC.
struct TypeTally
{
    static constexpr size_t verdictCount = static_cast<size_t>(Verdict::Kept) + 1;
    static constexpr size_t kindCount = static_cast<size_t>(http::FailureKind::Service) + 1;

    /// By verdict and kind of failure.
    std::array<std::array<qint64, kindCount>, verdictCount> counts = {};
    /// 0: no message was delivered.
    qint64 lastDelivered = 0;
    /// When a message was first kept after the last finished one; 0: none was.
    qint64 failingSince = 0;
    /// A message was finished with, which ends an earlier failure.
    bool isFinishing = false;

    void add(const Outcome &outcome);
    void add(const TypeTally &later);
};

/// The data of one transaction.
struct JournalBatch
{
    /// In the order of their first attempts.
    std::vector<TriedMessage> tried;
    QHash<QString, TypeTally> types;
    /// By name and subject.
    QMap<std::pair<QString, QString>, Fact> facts;

    bool isEmpty() const { return tried.empty() && types.isEmpty() && facts.isEmpty(); }
    /// Adds the row of an attempt, without its tally.
    void add(const Outcome &outcome);
    /// Appends a later batch.
    void add(JournalBatch &&later);
    /// Above `most` messages, merges the attempts of each message and then drops messages beyond
    /// the limit. Returns how many attempts were dropped.
    qint64 shorten(size_t most);
};
