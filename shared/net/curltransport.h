#pragma once

#include "shared/net/exchange.h"

/// Carries out one exchange over the connections that libcurl keeps for the calling thread.
ExchangeOutcome performExchange(const Exchange &exchange);
