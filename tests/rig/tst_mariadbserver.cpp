#include "rig/mariadbserver.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

class TestMariaDbServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void keepsItsRowsOverAnOrderlyEnd();
    void keepsItsRowsOverAPowerCut();
    void letsOnlyTheUserWithThePasswordIn();
    void hasNoTcpPort();

private:
    static QString tryToOpen(const MariaDbServer &server, const QString &password);

    std::unique_ptr<MariaDbServer> server;
};

void TestMariaDbServer::init()
{
    server = std::make_unique<MariaDbServer>();
}

void TestMariaDbServer::cleanup()
{
    server.reset();
}

void TestMariaDbServer::keepsItsRowsOverAnOrderlyEnd()
{
    server->run(u"INSERT INTO queues.message (type, body) VALUES ('cardlab', '{}')"_s);
    server->stop();
    server->start();
    QCOMPARE(server->run(u"SELECT type FROM queues.message"_s), "cardlab\n");
}

void TestMariaDbServer::keepsItsRowsOverAPowerCut()
{
    server->run(u"INSERT INTO queues.message (type, body) VALUES ('heineken', '{}')"_s);
    server->kill();
    server->start();
    QCOMPARE(server->run(u"SELECT type FROM queues.message"_s), "heineken\n");
}

void TestMariaDbServer::letsOnlyTheUserWithThePasswordIn()
{
    QCOMPARE(tryToOpen(*server, server->password()), QString());
    QVERIFY(tryToOpen(*server, u"wrong"_s).contains(u"Access denied"_s));
}

void TestMariaDbServer::hasNoTcpPort()
{
    QCOMPARE(server->run(u"SELECT @@skip_networking, @@performance_schema"_s), "1\t0\n");
}

QString TestMariaDbServer::tryToOpen(const MariaDbServer &server, const QString &password)
{
    QString error;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QMYSQL"_s, u"test"_s);
        database.setConnectOptions(u"UNIX_SOCKET="_s + server.socket());
        database.setDatabaseName(u"queues"_s);
        database.setUserName(server.user());
        database.setPassword(password);
        if (!database.open())
            error = database.lastError().text();
    }
    QSqlDatabase::removeDatabase(u"test"_s);
    return error;
}

QTEST_GUILESS_MAIN(TestMariaDbServer)
#include "tst_mariadbserver.moc"
