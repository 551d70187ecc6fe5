#pragma once

#include "shared/document/valut.h"

/// The till's currencies. The till numbers them as it likes and leaves no list of them to the
/// service, so every code above 0 is one; whether anything can be done with it is seen by what is
/// set up for it. Reached through Singleton<ValutCollection>. Thread: any.
class ValutCollection
{
public:
    virtual ~ValutCollection();

    /// The currency of that code; an empty one for 0 and below.
    virtual Valut getByCode(int code);
};
