#pragma once

#include "tools/catalogue/catalogue.h"
#include "tools/stand/scenario.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

/// Compares the outcomes in the catalogue with those that scenarios of the real program assert.
namespace stories {

/// What a scenario says about its messages of one type.
struct Story
{
    QString name;
    /// A message that was delivered or dropped in a later pass was kept in an earlier one.
    bool hasSteps = false;
    QList<stand::Outcome> outcomes;
    QList<QJsonObject> bodies;
};

/// The stories of a type's own file below the folder `scenarios`. Throws stand::ScenarioError.
QList<Story> storiesOf(const catalogue::Type &type, const QString &scenarios);

/// Whether a message with this outcome shows the row of outcomes: the same verdict, and the same
/// kind of failure, and the same reason where the row has one.
bool asserts(const stand::Outcome &told, const catalogue::Outcome &row);

/// One line for each row of the type's outcomes that no scenario asserts, for each scenario that is
/// listed with a row and shows something else, and for each message whose outcome is not a row.
/// Throws as above.
QStringList gaps(const catalogue::Type &type, const QString &scenarios);

} // namespace stories
