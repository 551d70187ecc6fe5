#pragma once

#include "shared/net/exchange.h"

/// Performs one exchange over the calling thread's connections.
ExchangeOutcome performExchange(const Exchange &exchange);
