#pragma once

#include <QString>

/// Where an absolute path of the till lies for this process: `path` itself, or below the folder that
/// the environment variable QUEUE_ROOT names. Tests and a developer's desk set that variable and
/// need no root; a till never does. Every fixed path of the service goes through here.
/// Thread: any.
QString rootedPath(const QString &path);
