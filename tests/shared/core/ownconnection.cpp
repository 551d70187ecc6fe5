#include "tests/shared/core/ownconnection.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"

#include <QThread>

#include <latch>
#include <memory>
#include <vector>

void removeOwnConnection()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const QString name = factory->getConnection().connectionName();
    factory->removeConnection(name);
}

QString connectError()
{
    try {
        Singleton<ConnectionFactory>::instance()->getConnection();
        return QString();
    } catch (const BasicException &exception) {
        return exception.tr().ru();
    }
}

void onThreads(int count, const std::function<void()> &function)
{
    std::latch start(count);
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([&] {
            start.arrive_and_wait();
            function();
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads)
        thread->wait();
}
