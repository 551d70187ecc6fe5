#pragma once

#include "engine/handlerfactory.h"

#include <span>

/// Every message type that the service delivers, with the class that does it.
std::span<const HandlerRow> handlerTable();
