#pragma once

#include "tools/queuectl/journalfile.h"

#include <QString>

namespace queuectl {

/// `delivered`, `dropped` and `kept` for the operator.
QString verdictText(const QString &verdict);
/// The message as a part of a sentence: "17 (cardlab, 4711, card ****0017)".
QString entryName(const JournalEntry &entry);
/// What became of a message, in a sentence.
QString entrySentence(const JournalEntry &entry);
/// The status and words of the last answer, secrets masked; empty for neither.
QString answerOf(const JournalEntry &entry);

} // namespace queuectl
