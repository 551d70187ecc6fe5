#include "tests/shared/core/bothdatabases.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

void BothDatabases::initTestCase()
{
    server = std::make_unique<rig::MariaDbServer>();
}

void BothDatabases::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    ConnectionFactory::setWithCheck(true);
    queue = std::make_unique<QueueDatabase>();
}

void BothDatabases::cleanup()
{
    queue.reset();
    server->run(u"TRUNCATE queues.message"_s);
}

void BothDatabases::cleanupTestCase()
{
    server.reset();
}

void BothDatabases::bothDatabases()
{
    QTest::addColumn<bool>("isServer");
    QTest::newRow("SQLite") << false;
    QTest::newRow("MariaDB") << true;
}

bool BothDatabases::isServer()
{
    QFETCH(bool, isServer);
    return isServer;
}

void BothDatabases::useDatabase()
{
    if (isServer())
        queue->setSettings(server->settings());
}
