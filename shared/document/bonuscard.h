#pragma once

#include <QString>

/// A card of the bonus server and the bonuses that an operation moves on it.
struct BonusCard
{
    QString number;
    double amount = 0.0;
};
