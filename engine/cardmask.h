#pragma once

#include <QString>

/// The last four characters of a card number, as in `****0017`; empty for an empty number.
QString maskedCard(const QString &number);

/// Masks payment card numbers in a text, all but the last four digits. A card number is a group of
/// 13 to 19 digits with a valid check digit; blanks or hyphens may separate its digits as on a
/// card.
QString maskCardNumbers(const QString &text);
