#include "shared/core/paths.h"

QString rootedPath(const QString &path)
{
    return qEnvironmentVariable("QUEUE_ROOT") + path;
}
