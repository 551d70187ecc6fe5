#pragma once

class JournalFixture;
class Till;

/// A week of a shop: deliveries by day and hour, two destinations that were away and one that still
/// is, messages that were dropped, rows that wait, settings with a password. Nothing in it is by
/// chance.
void fillWithAWeek(Till &till, JournalFixture &journal);

/// Texts that try to break out of a page, in every place that a row, a reply or a file has.
void fillWithHostileTexts(Till &till, JournalFixture &journal);
