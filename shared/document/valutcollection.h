#pragma once

#include "shared/document/valut.h"

/// The till's currencies. The service has no list of them, so every code above 0 counts as one; the
/// settings decide what can be done with it. Reached through Singleton<ValutCollection>. Thread:
/// any.
class ValutCollection
{
public:
    virtual ~ValutCollection();

    /// The currency of that code; an empty one for codes below 1.
    virtual Valut getByCode(int code);
};
