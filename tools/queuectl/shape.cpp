#include "tools/queuectl/shape.h"

#include <QMap>
#include <QSet>

#include <algorithm>
#include <limits>
#include <tuple>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int shapePageRows = 500;

int ageClassOf(qint64 seconds)
{
    int index = 0;
    while (seconds >= ageClasses()[index].below)
        ++index;
    return index;
}

bool isTried(Cause cause)
{
    return cause != Cause::Turn && cause != Cause::Unknown;
}

/// Counts rows while they are read.
class Collection
{
public:
    explicit Collection(const Situation &situation)
        : situation(situation)
    {
    }

    void add(const Row &row, const std::optional<JournalEntry> &entry);
    Shape shape() const;

private:
    struct Place
    {
        ShapeDestination destination;
        QMap<Cause, int> causes;
        QSet<QString> types;
    };

    void addToPlace(const Row &row, Cause cause);
    ShapeDestination finished(const Place &place) const;

    const Situation &situation;
    QMap<std::tuple<QString, int, Cause>, ShapeGroup> groups;
    // By address; rows without an address by type, since their destinations are unknown.
    QMap<QPair<QString, QString>, Place> places;
    int total = 0;
};

void Collection::add(const Row &row, const std::optional<JournalEntry> &entry)
{
    ++total;
    const Cause cause = situation.cause(row, entry);
    const int ageClass = ageClassOf(row.ageSeconds());
    ShapeGroup &group = groups[{row.type, ageClass, cause}];
    group.type = row.type;
    group.ageClass = ageClass;
    group.cause = cause;
    ++group.count;
    group.oldestSeconds = std::max(group.oldestSeconds, row.ageSeconds());
    addToPlace(row, cause);
}

void Collection::addToPlace(const Row &row, Cause cause)
{
    const QString address = destinationOf(row.type, row.object().value_or(QJsonObject()));
    Place &place = places[{address, address.isEmpty() ? row.type : QString()}];
    ShapeDestination &destination = place.destination;
    destination.address = address;
    ++destination.count;
    destination.oldestSeconds = std::max(destination.oldestSeconds, row.ageSeconds());
    ++place.causes[cause];
    place.types.insert(row.type);
    const QDateTime since = situation.streaks.value(row.type).failingSince;
    if (isTried(cause) && since.isValid()
        && (!destination.since.isValid() || since < destination.since))
        destination.since = since;
}

ShapeDestination Collection::finished(const Place &place) const
{
    ShapeDestination destination = place.destination;
    destination.cause = place.causes.contains(Cause::Unknown) ? Cause::Unknown : Cause::Turn;
    int most = 0;
    for (const auto &[cause, count] : place.causes.asKeyValueRange()) {
        if (!isTried(cause) || count <= most)
            continue;
        destination.cause = cause;
        most = count;
    }
    destination.types = QStringList(place.types.cbegin(), place.types.cend());
    destination.types.sort();
    for (const QString &type : std::as_const(destination.types)) {
        destination.today.delivered += situation.today.value(type).delivered;
        destination.today.dropped += situation.today.value(type).dropped;
    }
    return destination;
}

Shape Collection::shape() const
{
    Shape shape;
    shape.total = total;
    shape.groups = groups.values();
    for (const Place &place : places)
        shape.destinations.append(finished(place));
    std::stable_sort(
        shape.destinations.begin(), shape.destinations.end(),
        [](const ShapeDestination &a, const ShapeDestination &b) { return a.count > b.count; });
    return shape;
}

} // namespace

const QList<AgeClass> &ageClasses()
{
    static const QList<AgeClass> classes = {
        {u"minutes"_s, 600, "up to 10 min", "до 10 мин"},
        {u"hour"_s, 3600, "10 min to 1 h", "от 10 мин до 1 ч"},
        {u"day"_s, 86400, "1 h to 1 d", "от 1 ч до 1 д"},
        {u"older"_s, std::numeric_limits<qint64>::max(), "over 1 d", "больше 1 д"},
    };
    return classes;
}

void eachRow(MessageRows &rows, const Situation &situation, const QString &type,
             const std::function<void(const Row &, const std::optional<JournalEntry> &)> &take)
{
    int after = -1;
    while (true) {
        const QList<Row> page = rows.page(type, after, shapePageRows);
        const auto entries = situation.entriesOf(page);
        for (const Row &row : page) {
            const auto found = entries.constFind(row.id);
            take(row,
                 found == entries.constEnd() ? std::nullopt : std::optional<JournalEntry>(*found));
        }
        if (page.size() < shapePageRows)
            return;
        after = page.last().id;
    }
}

Shape collectShape(MessageRows &rows, const Situation &situation)
{
    Collection collection(situation);
    eachRow(rows, situation, QString(),
            [&collection](const Row &row, const auto &entry) { collection.add(row, entry); });
    return collection.shape();
}

} // namespace queuectl
