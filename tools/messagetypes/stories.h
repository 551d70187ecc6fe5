#pragma once

#include "tools/catalogue/catalogue.h"
#include "tools/stand/scenario.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

/// Holds the outcomes that the catalogue tells against those that scenarios of the real program
/// assert.
namespace stories {

/// What a scenario says of its messages of one type.
struct Story
{
    QString name;
    /// A message that was finished with in a later pass was kept in an earlier one.
    bool hasSteps = false;
    QList<stand::Outcome> outcomes;
    QList<QJsonObject> bodies;
};

/// The stories of a type's own file below the folder `scenarios`. Throws stand::ScenarioError.
QList<Story> storiesOf(const catalogue::Type &type, const QString &scenarios);

/// Whether the name fits a pattern of the catalogue, in which `*` stands for any text.
bool fits(const QString &pattern, const QString &text);

/// Whether a message that is told to end so shows the row of outcomes: the same verdict, and the
/// kind of failure or the reason too.
bool asserts(const stand::Outcome &told, const catalogue::Outcome &row);

/// One line for each row of the type's outcomes that no scenario asserts, for each scenario that is
/// listed with a row and shows something else, and for each message whose end is no row. Throws as
/// above.
QStringList gaps(const catalogue::Type &type, const QString &scenarios);

} // namespace stories
