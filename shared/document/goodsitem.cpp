#include "shared/document/goodsitem.h"

#include <algorithm>

double GoodsItem::getDiscountApplyLimit(bool aboveMinimum) const
{
    return aboveMinimum ? std::max(amount - minimalAmount, 0.0) : amount;
}
