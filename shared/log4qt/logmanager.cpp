#include "log4qt/logmanager.h"

#include <QHash>
#include <QMutex>

namespace Log4Qt {

Logger *LogManager::logger(const QString &name)
{
    static QMutex mutex;
    // Never destroyed: workers may log until the process is gone.
    static auto &loggers = *new QHash<QString, Logger *>;

    const QMutexLocker locker(&mutex);
    Logger *&logger = loggers[name];
    if (!logger)
        logger = new Logger(name);
    return logger;
}

} // namespace Log4Qt
