#pragma once

/// An article of the till's assortment.
class Tmc
{
public:
    /// Where the price comes from, by the till's own numbers; 5 is a promotion's price.
    void setPriceSourceType(int type) { priceSourceType = type; }
    int getPriceSourceType() const { return priceSourceType; }

private:
    int priceSourceType = 0;
};
