#pragma once

#include "tools/queuectl/report.h"
#include "tools/queuectl/situation.h"

namespace queuectl {

/// Adds what has been delivered and dropped today, by type: `today` in the data, a line with the
/// sums and one for each type that dropped something; or why that is not known.
void addToday(Report &report, const Situation &situation);

/// "cardlab: 2, spasibo: 1" for the types of `ended` that dropped messages; empty for none.
QString droppedByType(const QHash<QString, Ended> &ended);
/// The sentence with it, and how to see them.
QString droppedSentence(const QString &byType);

} // namespace queuectl
