#pragma once

#include <QString>

/// A card of the bonus server and the amount of bonuses of one operation.
struct BonusCard
{
    QString number;
    double amount = 0.0;
};
