#pragma once

#include "shared/document/documentimpactdetail.h"

#include <set>

/// A discount, a bonus or a payment that changes what a document costs.
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
    /// By line. A line may have several details, even equal ones: each is money of its own.
    using Details = std::multiset<DocumentImpactDetail, ByPosition>;

    /// What the impact does to the document as a whole. Its position means nothing.
    void setTotals(const DocumentImpactDetail &newTotals) { totals = newTotals; }
    DocumentImpactDetail getTotals() const { return totals; }
    void setDetails(const Details &newDetails) { details = newDetails; }
    Details getDetails() const { return details; }

private:
    DocumentImpactDetail totals;
    Details details;
};
