#pragma once

#include "tools/catalogue/catalogue.h"

namespace catalogue {

/// An attempt after which the message stays, as the delivery journal records it.
struct Refusal
{
    /// One of Outcome::kinds.
    QString kind;
    /// The HTTP status of the last answer; 0 for none.
    int status = 0;
    QString reason;
};

/// The outcome of the type that says why the message stays; null when none or several may. A
/// recorded reason decides first, then the kind of failure, then whether the answer was an HTTP
/// error, and last the rule with the fewest kinds.
const Outcome *keepingRule(const Type &type, const Refusal &refusal);

} // namespace catalogue
