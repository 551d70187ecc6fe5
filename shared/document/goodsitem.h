#pragma once

#include "shared/document/tmc.h"

#include <QString>
#include <QStringList>

/// A line of a document: an article and what is known of its sale.
class GoodsItem
{
public:
    /// The number of the line, by which impacts name it.
    void setPosnum(int number) { posnum = number; }
    int getPosnum() const { return posnum; }
    void setAdditionalBarcode(const QString &barcode) { additionalBarcode = barcode; }
    QString getAdditionalBarcode() const { return additionalBarcode; }
    void setQuantity(double newQuantity) { quantity = newQuantity; }
    double getQuantity() const { return quantity; }
    void setTmc(const Tmc &newTmc) { tmc = newTmc; }
    Tmc getTmc() const { return tmc; }

    /// What the line costs after the discounts that it has.
    void setAmount(double newAmount) { amount = newAmount; }
    /// What discounts must leave of that amount; 0 when they may take all.
    void setMinimalAmount(double newAmount) { minimalAmount = newAmount; }
    /// The amount from which a further discount is reckoned: the whole line or, with
    /// `aboveMinimum`, the part above its minimal amount.
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
