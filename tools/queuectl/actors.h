#pragma once

#include "tools/queuectl/cause.h"
#include "tools/queuectl/controlport.h"

#include <QString>

namespace queuectl {

/// Who has to do something about rows that wait for this cause, while the control port is in this
/// state.
Actor actorFor(Cause cause, PortState service);

/// What that is, as a part of a sentence. `destination`: an address, or empty; `id`: one of the
/// rows.
QString actionText(Cause cause, PortState service, const QString &type, const QString &destination,
                   int id);

} // namespace queuectl
