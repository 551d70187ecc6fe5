#pragma once

#include "engine/handlerfactory.h"

#include <span>

/// All message types that the service delivers, with their handler classes.
std::span<const HandlerRow> handlerTable();
