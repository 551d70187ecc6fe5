// What the start and the end of a worker's access to the database cost: a connection of its own, the
// preparation of the eleven statements, and the removal of both.
//
// queue-workerstart SETTINGS-FILE ROUNDS      prints the median in milliseconds

#include "benchmarks/statistics.h"
#include "engine/dao.h"
#include "shared/core/config.h"
#include "shared/core/logging.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fputs("usage: queue-workerstart SETTINGS-FILE ROUNDS\n", stderr);
        return 2;
    }
    const QFileInfo settings(arguments.at(1));
    Config::setConfigsPathList({settings.dir()}, {settings.fileName()});
    setUpLogging();
    // The first one loads the driver.
    queue::DAO().connect();
    std::printf("%.3f\n", median(arguments.at(2).toInt(), [] { queue::DAO().connect(); }));
    return 0;
}
