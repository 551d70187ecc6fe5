#pragma once

#include <QStringList>

namespace queuectl {

/// The service, Qt, the system and the kind of database, a line each.
QStringList versionLines();

} // namespace queuectl
