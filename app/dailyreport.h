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

/// Logs the number of delivered, dropped and kept messages once a day and when the service ends.
/// Passes every outcome and fact on to the next sink.
/// Thread: any for take() and note(), the main thread for the rest.
class DailyReport : public OutcomeSink
{
public:
    /// `next` may be null.
    explicit DailyReport(std::shared_ptr<OutcomeSink> next);

    void take(const Outcome &outcome) override;
    void note(const Fact &fact) override;

    /// Reports if the date has changed since the last report or since the start.
    void reportIfDue();
    /// Reports now if any message was tried since the last report.
    void reportRest();

private:
    struct Counts
    {
        int delivered = 0;
        int dropped = 0;
        /// Counts attempts: a message that is kept counts once for each attempt.
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
