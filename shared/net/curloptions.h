#pragma once

#include "shared/net/connections.h"
#include "shared/net/transfer.h"

struct Exchange;

/// What libcurl is told. The options of a handle stay until Client::forget().
namespace curl {

/// What the settings say for this exchange.
Setup setupFor(const Exchange &exchange);

/// What all exchanges of a client have in common. Does nothing when the client is set up so.
void setUp(Client &client, const Exchange &exchange, const Setup &setup);

/// What is this exchange's own. `transfer` and `parts` must live until it has ended.
void setRequest(Client &client, const Exchange &exchange, Transfer &transfer, const Mime &parts);

/// The parts of a request, null when it has none.
Mime partsOf(CURL *handle, const Exchange &exchange);

/// Whether the exchange may use a connection that is open, and leave its own open.
void setReuse(CURL *handle, bool isAllowed);

} // namespace curl
