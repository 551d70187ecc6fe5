#pragma once

#include "engine/outcome.h"
#include "shared/core/guarded.h"

#include <QDateTime>
#include <QMap>
#include <QString>

#include <memory>

namespace Log4Qt {
class Logger;
}

/// Says in the log once a day, and when the service ends, what became of the messages since the
/// last time, so that the log alone tells it too. Passes everything on to the sink after it.
/// Thread: any for take() and note(), the main thread for the rest.
class DailyReport : public OutcomeSink
{
public:
    /// `next` may be null.
    explicit DailyReport(std::shared_ptr<OutcomeSink> next);

    void take(const Outcome &outcome) override;
    void note(const Fact &fact) override;

    /// Reports if the day is another one than at the last report, or at the start.
    void reportIfDue();
    /// Reports now unless nothing has been tried.
    void reportRest();

private:
    struct Counts
    {
        int delivered = 0;
        int dropped = 0;
        /// Attempts, not messages: one that stays is tried again and again.
        int failed = 0;

        void add(const Counts &other);
    };
    using Types = QMap<QString, Counts>;

    Types takeCounts();
    void report(const Types &types, const QDateTime &now);
    static QString describe(const Counts &counts);

    const std::shared_ptr<OutcomeSink> next;
    Guarded<Types> counted;
    QDateTime since;
    Log4Qt::Logger *const logger;
};
