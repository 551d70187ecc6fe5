#pragma once

#include "handlers/loyalty/manzanahandler.h"

/// Delivers `manzana2019` messages.
class Manzana2019Handler : public ManzanaHandler
{
public:
    Manzana2019Handler();
};
