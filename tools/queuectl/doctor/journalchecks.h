#pragma once

#include "tools/queuectl/check.h"

#include <QList>

namespace queuectl {

/// Looks at the delivery journal: whether it can be read, its size, age and rights, and whether the
/// clock has jumped. Then at what the service has written down of its exchanges: when client
/// certificates in use expire, and how the till's clock differs from those of the services. Never
/// throws.
QList<Check> checkJournal();

} // namespace queuectl
