#pragma once

#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/situation.h"

#include <QList>
#include <QString>

namespace queuectl {

/// Somebody has to look after rows that have waited for longer.
constexpr qint64 oldRowSeconds = 3600;

/// Rows that somebody has to look after.
struct Concern
{
    enum class Kind
    {
        /// The service has no handler for the type.
        NoHandler,
        /// The type has been refused and never delivered.
        OnlyFailed,
        /// Rows that have waited for more than oldRowSeconds.
        Old
    } kind = Kind::Old;
    QString type;
    /// How many rows it concerns.
    int count = 0;
    /// Text for the operator.
    QString text;
};

/// What is wrong with the rows that wait, by type; each type is named once, by its gravest concern.
/// Throws Failure.
QList<Concern> concernsOf(MessageRows &rows, const Situation &situation);
/// The name in the JSON form.
QString kindName(Concern::Kind kind);

} // namespace queuectl
