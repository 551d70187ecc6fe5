#pragma once

#include "tools/queuectl/settingsfiles.h"

namespace queuectl {

/// What is wrong with `network:proxy` and `network:noProxy`, with the file and line that hold them.
QList<SettingFault> checkNetworkSettings();

/// Why no request can go through `proxy`; empty when one can. Shows no account.
QString proxyFault(const QString &proxy);
/// A sentence for each entry of `noProxy` that matches no host.
QStringList noProxyFaults(const QString &noProxy);

} // namespace queuectl
