#pragma once

#include "shared/document/tmc.h"

#include <QString>
#include <QStringList>

/// A line of a document: an article and the data of its sale.
class GoodsItem
{
public:
    /// The line's number, to which impacts refer.
    void setPosnum(int number) { posnum = number; }
    int getPosnum() const { return posnum; }
    void setAdditionalBarcode(const QString &barcode) { additionalBarcode = barcode; }
    QString getAdditionalBarcode() const { return additionalBarcode; }
    void setQuantity(double newQuantity) { quantity = newQuantity; }
    double getQuantity() const { return quantity; }
    void setTmc(const Tmc &newTmc) { tmc = newTmc; }
    Tmc getTmc() const { return tmc; }

    /// The price of the line after its discounts.
    void setAmount(double newAmount) { amount = newAmount; }
    /// The part of the amount that discounts must leave; 0 when they may take all of it.
    void setMinimalAmount(double newAmount) { minimalAmount = newAmount; }
    /// The base amount of a further discount: the whole line or, with `aboveMinimum`, the part
    /// above its minimal amount.
    double getDiscountApplyLimit(bool aboveMinimum) const;

    void setCampaignLabels(const QStringList &labels) { campaignLabels = labels; }
    QStringList getCampaignLabels() const { return campaignLabels; }
    void setAllowDiscount(bool allow) { allowDiscount = allow; }
    bool isAllowDiscount() const { return allowDiscount; }
    void setAllowBonusEarn(bool allow) { allowBonusEarn = allow; }
    bool isAllowBonusEarn() const { return allowBonusEarn; }

private:
    int posnum = 0;
    QString additionalBarcode;
    double quantity = 1.0;
    Tmc tmc;
    double amount = 0.0;
    double minimalAmount = 0.0;
    QStringList campaignLabels;
    bool allowDiscount = true;
    bool allowBonusEarn = true;
};
