#include "tools/queuectl/outages.h"

#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// Collects the outages of one type. Messages and deliveries come in the order of their times.
class Course
{
public:
    void fail(const Attempted &attempted) { failed.append(attempted); }

    QDateTime begin() const { return failed.first().first; }

    /// The delivery ends what began before it.
    void deliver(const QString &type, const QDateTime &time)
    {
        Outage outage{type, {}, time};
        while (next < failed.size() && failed[next].first < time) {
            if (outage.messages++ == 0)
                outage.begin = failed[next].first;
            ++next;
        }
        if (outage.messages > 0)
            outages.append(outage);
    }

    /// After the last delivery.
    void finish(const QString &type, bool isFailing, const QDateTime &now)
    {
        if (next == failed.size())
            return;
        const auto rest = static_cast<int>(failed.size() - next);
        Outage outage{type, failed[next].first, now, isFailing, rest};
        if (!isFailing) {
            outage.end = failed[next].last;
            for (; next < failed.size(); ++next)
                outage.end = std::max(outage.end, failed[next].last);
        }
        outages.append(outage);
    }

    QList<Outage> outages;

private:
    QList<Attempted> failed;
    qsizetype next = 0;
};

} // namespace

QList<Outage> findOutages(JournalFile &journal, const QDateTime &since, const QDateTime &now,
                          qint64 shortestSeconds)
{
    QMap<QString, Course> courses;
    journal.failed(since, [&courses](const QString &type, const Attempted &attempted) {
        courses[type].fail(attempted);
    });
    if (courses.isEmpty())
        return {};
    QDateTime begin = now;
    for (const Course &course : std::as_const(courses))
        begin = std::min(begin, course.begin());
    journal.deliveries(begin, [&courses](const QString &type, const QDateTime &time) {
        const auto course = courses.find(type);
        if (course != courses.end())
            course->deliver(type, time);
    });
    const QHash<QString, Streak> streaks = journal.streaks();
    QList<Outage> outages;
    for (auto course = courses.begin(); course != courses.end(); ++course) {
        course->finish(course.key(), streaks.value(course.key()).failingSince.isValid(), now);
        std::copy_if(course->outages.cbegin(), course->outages.cend(), std::back_inserter(outages),
                     [&](const Outage &outage) {
                         return outage.end >= since
                                && (outage.isOngoing || outage.seconds() >= shortestSeconds);
                     });
    }
    return outages;
}

} // namespace queuectl
