#pragma once

#include "shared/net/connections.h"
#include "shared/net/transfer.h"

struct Exchange;

/// The options of libcurl handles. They stay set until Client::forget().
namespace curl {

/// The options that the settings give for this exchange.
Setup setupFor(const Exchange &exchange);

/// Sets the options that all exchanges of a client share. Does nothing if they are set already.
void setUp(Client &client, const Exchange &exchange, const Setup &setup);

/// Sets the options of this exchange alone. `transfer` and `parts` must outlive it.
void setRequest(Client &client, const Exchange &exchange, Transfer &transfer, const Mime &parts);

/// The multipart sections of a request; null if it has none.
Mime partsOf(CURL *handle, const Exchange &exchange);

/// Whether the exchange may reuse an open connection and leave its own open.
void setReuse(CURL *handle, bool isAllowed);

} // namespace curl
