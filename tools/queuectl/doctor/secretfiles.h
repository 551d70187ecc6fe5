#pragma once

#include <QList>
#include <QString>

namespace queuectl {

/// A settings file whose rights are wrong.
struct SecretFinding
{
    /// The service cannot read it; otherwise it holds a secret that too many accounts can read.
    bool isOutOfReach = false;
    QString text;
};

/// Looks at who may read the settings files: the service's account all of them, and those with
/// passwords, keys or tokens nobody besides. Members of the service's group write rows, which takes
/// no password.
QList<SecretFinding> checkSettingsRights();

} // namespace queuectl
