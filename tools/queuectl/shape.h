#pragma once

#include "tools/queuectl/situation.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace queuectl {

/// Rows of one type, age class and cause.
struct ShapeGroup
{
    QString type;
    /// Index in ageClasses().
    int ageClass = 0;
    Cause cause = Cause::Turn;
    int count = 0;
    qint64 oldestSeconds = 0;
};

/// Rows that go to one place.
struct ShapeDestination
{
    /// Empty where no row and no setting names an address; then the rows are of one type.
    QString address;
    int count = 0;
    qint64 oldestSeconds = 0;
    /// The most frequent cause among the rows that have been tried.
    Cause cause = Cause::Turn;
    /// In order.
    QStringList types;
    /// Since when it fails; invalid when unknown.
    QDateTime since;
    /// Messages of these types that ended today.
    Ended today;
};

/// What the queue consists of.
struct Shape
{
    int total = 0;
    /// By type, age and cause.
    QList<ShapeGroup> groups;
    /// The one with the most rows first.
    QList<ShapeDestination> destinations;
};

struct AgeClass
{
    /// In the JSON form.
    QString name;
    qint64 below;
    const char *english;
    const char *russian;
};

const QList<AgeClass> &ageClasses();

/// Hands over every row, with a type those of that type, with what is on record of it, in the order
/// of their ids. Throws Failure.
void eachRow(MessageRows &rows, const Situation &situation, const QString &type,
             const std::function<void(const Row &, const std::optional<JournalEntry> &)> &take);

/// Reads all rows. Throws Failure.
Shape collectShape(MessageRows &rows, const Situation &situation);

} // namespace queuectl
