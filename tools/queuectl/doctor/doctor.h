#pragma once

#include "tools/queuectl/check.h"

#include <QList>

namespace queuectl {

/// Looks at everything that a delivery needs. Never throws, writes nothing.
QList<Check> runChecks();

} // namespace queuectl
