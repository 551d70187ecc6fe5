#pragma once

#include <QString>

/// The last four characters of a card's number, as in `****0017`; empty for no card.
QString maskedCard(const QString &number);

/// The text with each group of digits that can be the number of a payment card, 13 to 19 digits
/// with a right check digit, reduced to its last four. Blanks or hyphens may part the digits as
/// they do on a card.
QString maskCardNumbers(const QString &text);
