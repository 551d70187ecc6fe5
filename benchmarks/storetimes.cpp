// Measures calls of the service's store. `connect` is a worker's start and end: opening a
// connection, preparing all statements, and closing. `poll`, `status` and `read` are the three
// statements whose time depends on the length of the queue.
//
// queue-storetimes SETTINGS-FILE connect|poll|status|read ROUNDS
//
// Prints the median in milliseconds.

#include "benchmarks/statistics.h"
#include "engine/dao.h"
#include "shared/core/config.h"
#include "shared/core/logging.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHash>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    queue::DAO store;
    const QHash<QString, std::function<void()>> calls{
        {u"connect"_s,
         [] {
             queue::DAO().connect();
         }},
        {u"poll"_s,
         [&store] {
             store.getMessageTypeCounts();
         }},
        {u"status"_s,
         [&store] {
             store.getQueueInfo();
         }},
        {u"read"_s,
         [&store] {
             store.getMessages(u"bench"_s, -1, 1, false, QString());
         }},
    };
    if (arguments.size() != 4 || !calls.contains(arguments.at(2))) {
        std::fputs("usage: queue-storetimes SETTINGS-FILE connect|poll|status|read ROUNDS\n",
                   stderr);
        return 2;
    }
    const QFileInfo settings(arguments.at(1));
    Config::setConfigsPathList({settings.dir()}, {settings.fileName()});
    setUpLogging();
    // The first connection also loads the driver.
    if (arguments.at(2) == u"connect")
        queue::DAO().connect();
    else
        store.connect();
    std::printf("%.3f\n", median(arguments.at(3).toInt(), calls.value(arguments.at(2))));
    return 0;
}
