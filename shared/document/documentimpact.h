#pragma once

#include "shared/document/documentimpactdetail.h"

#include <set>

/// A discount, a bonus or a payment that changes the price of a document.
class DocumentImpact
{
public:
    struct ByPosition
    {
        bool operator()(const DocumentImpactDetail &left, const DocumentImpactDetail &right) const
        {
            return left.getPosition() < right.getPosition();
        }
    };
    /// Sorted by line. A line may have several details, even equal ones; each is a separate amount.
    using Details = std::multiset<DocumentImpactDetail, ByPosition>;

    /// The effect on the whole document. Its position has no meaning.
    void setTotals(const DocumentImpactDetail &newTotals) { totals = newTotals; }
    DocumentImpactDetail getTotals() const { return totals; }
    void setDetails(const Details &newDetails) { details = newDetails; }
    Details getDetails() const { return details; }

private:
    DocumentImpactDetail totals;
    Details details;
};
