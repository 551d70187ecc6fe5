#pragma once

#include <QVariant>

/// The effect of an impact on one line of the document or, as its totals, on the whole document.
/// Modes and types are numbers defined by the till.
class DocumentImpactDetail
{
public:
    /// The currency of a payment that acts as a discount; null for any other impact.
    void setValutCode(const QVariant &code) { valutCode = code; }
    QVariant getValutCode() const { return valutCode; }
    void setDiscountMode(int mode) { discountMode = mode; }
    int getDiscountMode() const { return discountMode; }
    void setDiscountType(int type) { discountType = type; }
    int getDiscountType() const { return discountType; }
    void setDiscountSum(double sum) { discountSum = sum; }
    double getDiscountSum() const { return discountSum; }
    /// The number of the line.
    void setPosition(int number) { position = number; }
    int getPosition() const { return position; }

private:
    QVariant valutCode;
    int discountMode = 0;
    int discountType = 0;
    double discountSum = 0.0;
    int position = 0;
};
