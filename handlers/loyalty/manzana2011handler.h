#pragma once

#include "handlers/loyalty/manzanahandler.h"

/// Delivers `manzana` messages.
class Manzana2011Handler : public ManzanaHandler
{
public:
    Manzana2011Handler();
};
