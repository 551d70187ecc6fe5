#include "shared/core/paths.h"

using namespace Qt::StringLiterals;

QString rootedPath(const QString &path)
{
    return qEnvironmentVariable("QUEUE_ROOT") + path;
}

QList<QDir> settingsFolders()
{
    QList<QDir> folders;
    for (const QString &path : {
             u"/tallocash/cash/conf"_s,
             u"/tallocash/cash/conf/tcash.ini.d"_s,
             u"/tallocash/cash/conf/tcash.ini.d/puppet"_s,
             u"/tallocash/cash/queue/config"_s,
             u"/tallocash/cash/queue/config/queue.d"_s,
         })
        folders.append(QDir(rootedPath(path)));
    return folders;
}

QString startIdsFile()
{
    return rootedPath(u"/tallocash/cash/queue/ids.json"_s);
}

QString journalFile()
{
    return rootedPath(u"/tallocash/cash/queue/journal.db"_s);
}

QString serviceLockFile()
{
    return rootedPath(u"/tallocash/cash/queue/queue.lock"_s);
}
