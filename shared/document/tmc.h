#pragma once

/// An article of the till's assortment.
class Tmc
{
public:
    /// The source of the price, a number defined by the till; 5 is a promotion.
    void setPriceSourceType(int type) { priceSourceType = type; }
    int getPriceSourceType() const { return priceSourceType; }

private:
    int priceSourceType = 0;
};
