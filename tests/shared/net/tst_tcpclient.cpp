#include "rig/deafport.h"
#include "shared/net/tcpclient.h"
#include "tests/shared/net/recordingobserver.h"
#include "tests/support/hostnames.h"
#include "tests/support/vtable.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <arpa/inet.h>
#include <latch>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using rig::DeafPort;

namespace {

/// A server that the test controls step by step, with direct system calls, in the thread of the
/// test or in its own.
class Server
{
public:
    explicit Server(int receiveBuffer = 0, int backlog = 5)
    {
        if (receiveBuffer > 0)
            ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *any = reinterpret_cast<sockaddr *>(&address);
        if (::bind(listener, any, size) != 0 || ::getsockname(listener, any, &size) != 0)
            qFatal("No port");
        port = ntohs(address.sin_port);
        if (backlog >= 0 && ::listen(listener, backlog) != 0)
            qFatal("Cannot listen");
    }
    ~Server()
    {
        closeConnection();
        ::close(listener);
    }

    void accept() { connection = ::accept(listener, nullptr, nullptr); }
    void send(const QByteArray &bytes)
    {
        if (::send(connection, bytes.data(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL) < 0)
            sendError = errno;
    }
    /// This many bytes.
    void read(char *bytes, size_t size)
    {
        if (::recv(connection, bytes, size, MSG_WAITALL) != static_cast<ssize_t>(size))
            readError = errno;
    }
    /// Everything until the end of the client's data; readError holds the reason of the end.
    QByteArray readAll(size_t step = 65536)
    {
        QByteArray result;
        QByteArray piece(static_cast<qsizetype>(step), Qt::Uninitialized);
        ssize_t count = 0;
        while ((count = ::recv(connection, piece.data(), step, 0)) > 0)
            result += piece.first(count);
        readError = count < 0 ? errno : 0;
        return result;
    }
    void reset()
    {
        const linger hard = {1, 0};
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        closeConnection();
    }
    void closeConnection()
    {
        if (connection >= 0)
            ::close(connection);
        connection = -1;
    }

    int port = 0;
    int readError = 0;
    int sendError = 0;

private:
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int connection = -1;
};

std::unique_ptr<TcpClient> clientOf(const Server &server, int timeout = 0)
{
    auto client = std::make_unique<TcpClient>();
    client->setHost(u"127.0.0.1"_s);
    client->setPort(server.port);
    client->setTimeout(timeout);
    return client;
}

} // namespace

class TestTcpClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void bytesArrive();
    void hostIsFound_data();
    void hostIsFound();
    void refusedConnectionFailsAtOnce();
    void portOutOfRangeFails_data();
    void portOutOfRangeFails();
    void connectingIsBounded_data();
    void connectingIsBounded();
    void eachAddressIsTried_data();
    void eachAddressIsTried();
    void allAddressesTogetherAreBounded();
    void largeWriteReachesASlowReader();
    void writeToADeafServerIsBounded();
    void talkativeServerGetsAllBytes();
    void resetIsSurvived();
    void withoutAConnectionNothingHappens();
    void clientConnectsAgain();
    void worksInAThreadWithoutEventLoop();

    void reportsOfConnecting_data();
    void reportsOfConnecting();
    void reportsAreMadeAtTheEnd();
    void reportsOfAServerThatTakesNothing();
    void reportsOfALostConnection();
    void reportsOfAConnectionThatIsResetAtTheEnd();
    void reportsOfAConnectionThatTheServerCloses();
};

void TestTcpClient::operationsKeepTheirPlaces()
{
    struct Next : QObject
    {
        virtual void next() {}
    };
    const int first = slotOf(&Next::next);
    QCOMPARE(slotOf(&TcpClient::setHost), first);
    QCOMPARE(slotOf(&TcpClient::setPort), first + 1);
    QCOMPARE(slotOf(&TcpClient::setTimeout), first + 2);
    QCOMPARE(slotOf(&TcpClient::connectToServer), first + 3);
    QCOMPARE(slotOf(&TcpClient::disconnectFromServer), first + 4);
    QCOMPARE(slotOf(&TcpClient::write), first + 5);
}

void TestTcpClient::bytesArrive()
{
    Server server;
    const auto client = clientOf(server);
    QVERIFY(client->connectToServer());
    client->write("первый\n");
    client->write(QByteArray());
    client->write(QByteArray("\0\xFF", 2));
    client->disconnectFromServer();
    server.accept();
    QCOMPARE(server.readAll(), "первый\n" + QByteArray("\0\xFF", 2));
    QCOMPARE(server.readError, 0);
}

void TestTcpClient::hostIsFound_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("isFound");
    // clang-format off
    QTest::newRow("name")           << u"localhost"_s          << true;
    QTest::newRow("address")        << u"127.0.0.1"_s          << true;
    QTest::newRow("IPv6 notation")  << u"::ffff:127.0.0.1"_s   << true;
    QTest::newRow("none")           << u""_s                   << false;
    QTest::newRow("no name at all") << u"till..shop"_s         << false;
    QTest::newRow("with a scheme")  << u"tcp://127.0.0.1"_s    << false;
    // clang-format on
}

void TestTcpClient::hostIsFound()
{
    QFETCH(QString, host);
    Server server;
    const auto client = clientOf(server);
    client->setHost(host);
    QTEST(client->connectToServer(), "isFound");
}

void TestTcpClient::refusedConnectionFailsAtOnce()
{
    // Bound, so that the port stays reserved, but not listening.
    const Server server(0, -1);
    const auto client = clientOf(server, 60);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!client->connectToServer());
    QVERIFY(clock.elapsed() < 30'000);
}

void TestTcpClient::portOutOfRangeFails_data()
{
    QTest::addColumn<int>("offset");
    QTest::newRow("far too high") << 65536;
    QTest::newRow("negative") << -65536;
}

void TestTcpClient::portOutOfRangeFails()
{
    QFETCH(int, offset);
    Server server;
    const auto client = clientOf(server);
    // The low 16 bits are a port with a listener.
    client->setPort(server.port + offset);
    QVERIFY(!client->connectToServer());
    client->setPort(0);
    QVERIFY(!client->connectToServer());
}

void TestTcpClient::connectingIsBounded_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("limitMs");
    QTest::newRow("one second") << 1 << 1000;
    QTest::newRow("zero is five seconds") << 0 << 5000;
    QTest::newRow("negative is five seconds") << -3 << 5000;
}

void TestTcpClient::connectingIsBounded()
{
    QFETCH(int, timeout);
    QFETCH(int, limitMs);
    // A server that accepts no connections, with a full backlog: further connections get no answer.
    const Server server(0, 0);
    std::vector<std::unique_ptr<TcpClient>> others;
    do {
        others.push_back(clientOf(server, 1));
    } while (others.back()->connectToServer());

    const auto client = clientOf(server, timeout);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!client->connectToServer());
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= limitMs - 50 && elapsed < limitMs + 3000, QByteArray::number(elapsed));
}

void TestTcpClient::eachAddressIsTried_data()
{
    QTest::addColumn<QList<QByteArray>>("addresses");
    const auto row = [](const char *name, const QList<QByteArray> &addresses) {
        QTest::newRow(name) << addresses;
    };
    // clang-format off
    row("refuses",            {"127.0.0.4", "127.0.0.1"});
    row("does not answer",    {"127.0.0.2", "127.0.0.1"});
    row("two do not answer",  {"127.0.0.2", "127.0.0.3", "127.0.0.1"});
    row("the other protocol", {"::1", "127.0.0.2", "127.0.0.1"});
    row("not needed",         {"127.0.0.1", "127.0.0.2"});
    // clang-format on
}

void TestTcpClient::eachAddressIsTried()
{
    QFETCH(QList<QByteArray>, addresses);
    Server server;
    const DeafPort second("127.0.0.2", server.port);
    const DeafPort third("127.0.0.3", server.port);
    const QByteArray name = "tried" + QByteArray::number(server.port) + ".test";
    setAddressesOf(name, addresses);
    const auto client = clientOf(server, 2);
    client->setHost(QString::fromLatin1(name));
    QVERIFY(client->connectToServer());
    client->write("a");
    client->disconnectFromServer();
    server.accept();
    QCOMPARE(server.readAll(), "a");
}

void TestTcpClient::allAddressesTogetherAreBounded()
{
    Server server;
    const DeafPort second("127.0.0.2", server.port);
    const DeafPort third("127.0.0.3", server.port);
    const QByteArray name = "bounded" + QByteArray::number(server.port) + ".test";
    setAddressesOf(name, {"127.0.0.2", "127.0.0.3"});
    const auto client = clientOf(server, 2);
    client->setHost(QString::fromLatin1(name));
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!client->connectToServer());
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= 1950 && elapsed < 5000, QByteArray::number(elapsed));
}

void TestTcpClient::largeWriteReachesASlowReader()
{
    Server server(4096);
    QByteArray data(5 * 1024 * 1024, Qt::Uninitialized);
    for (qsizetype i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 31 + i / 251);

    QByteArray arrived;
    std::unique_ptr<QThread> reader(QThread::create([&] {
        server.accept();
        arrived = server.readAll(1000);
    }));
    reader->start();
    const auto client = clientOf(server, 60);
    QVERIFY(client->connectToServer());
    client->write(data);
    client->disconnectFromServer();
    QVERIFY(reader->wait());
    QVERIFY(arrived == data);
    QCOMPARE(server.readError, 0);
}

void TestTcpClient::writeToADeafServerIsBounded()
{
    Server server(4096);
    const auto client = clientOf(server, 1);
    QVERIFY(client->connectToServer());
    QElapsedTimer clock;
    clock.start();
    client->write(QByteArray(32 * 1024 * 1024, 'x'));
    const qint64 written = clock.restart();
    QVERIFY2(written >= 950 && written < 4000, QByteArray::number(written));
    client->disconnectFromServer();
    const qint64 closed = clock.elapsed();
    QVERIFY2(closed >= 950 && closed < 4000, QByteArray::number(closed));
}

void TestTcpClient::talkativeServerGetsAllBytes()
{
    Server server(4096);
    const QByteArray data(1024 * 1024, 'd');
    QByteArray arrived;
    std::unique_ptr<QThread> reader(QThread::create([&] {
        server.accept();
        // The other side does not read this.
        server.send(QByteArray(20'000, 'a'));
        arrived = server.readAll(1000);
        server.send("done");
    }));
    reader->start();
    const auto client = clientOf(server, 60);
    QVERIFY(client->connectToServer());
    client->write(data);
    client->disconnectFromServer();
    QVERIFY(reader->wait());
    QCOMPARE(arrived.size(), data.size());
    QCOMPARE(server.readError, 0);
}

void TestTcpClient::resetIsSurvived()
{
    Server server;
    const auto client = clientOf(server, 60);
    QVERIFY(client->connectToServer());
    server.accept();
    server.reset();
    QElapsedTimer clock;
    clock.start();
    client->write("x");
    client->write(QByteArray(1024 * 1024, 'x'));
    client->disconnectFromServer();
    QVERIFY(clock.elapsed() < 30'000);

    QVERIFY(client->connectToServer());
    client->write("again");
    client->disconnectFromServer();
    server.accept();
    QCOMPARE(server.readAll(), "again");
}

void TestTcpClient::withoutAConnectionNothingHappens()
{
    TcpClient client;
    client.write("x");
    client.disconnectFromServer();
    QVERIFY(!client.connectToServer());
    client.write("x");
    client.disconnectFromServer();
}

void TestTcpClient::clientConnectsAgain()
{
    Server server;
    const auto client = clientOf(server);
    QVERIFY(client->connectToServer());
    client->write("first");
    // Without a disconnect in between.
    QVERIFY(client->connectToServer());
    client->write("second");
    client->disconnectFromServer();
    server.accept();
    QCOMPARE(server.readAll(), "first");
    server.closeConnection();
    server.accept();
    QCOMPARE(server.readAll(), "second");
}

void TestTcpClient::worksInAThreadWithoutEventLoop()
{
    Server server;
    bool isConnected = false;
    std::unique_ptr<QThread> worker(QThread::create([&] {
        const auto client = clientOf(server);
        client->setHost(u"localhost"_s);
        isConnected = client->connectToServer();
        client->write("from a worker");
        client->disconnectFromServer();
    }));
    worker->start();
    QVERIFY(worker->wait());
    QVERIFY(isConnected);
    server.accept();
    QCOMPARE(server.readAll(), "from a worker");
}

void TestTcpClient::reportsOfConnecting_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("text");
    const Server closed(0, -1);
    const QString name = u"127.0.0.1"_s;
    const QString outside = u"Недопустимый порт %1, нужно число от 1 до 65535"_s;
    // clang-format off
    QTest::newRow("refused")      << name           << closed.port << u"network"_s << u"Сервер 127.0.0.1:%1 отклонил соединение"_s.arg(closed.port);
    QTest::newRow("no such name") << u"till..shop"_s << 80         << u"network"_s << u"Не найден адрес сервера till..shop"_s;
    QTest::newRow("no name")      << QString()      << 80          << u"network"_s << u"Не найден адрес сервера "_s;
    QTest::newRow("no port")      << name           << 0           << u"request"_s << outside.arg(0);
    QTest::newRow("port too high") << name          << 65536       << u"request"_s << outside.arg(65536);
    // clang-format on
}

void TestTcpClient::reportsOfConnecting()
{
    QFETCH(QString, host);
    QFETCH(int, port);
    const RecordingObserver observer;
    {
        TcpClient client;
        client.setHost(host);
        client.setPort(port);
        QVERIFY(!client.connectToServer());
        client.disconnectFromServer();
    }
    const http::ExchangeReport report = observer.only();
    QTEST(QString(http::nameOf(report.kind)), "kind");
    QTEST(report.text, "text");
    QCOMPARE(report.status, 0);
    QCOMPARE(report.path, QString());
}

void TestTcpClient::reportsAreMadeAtTheEnd()
{
    Server server;
    const RecordingObserver observer;
    const auto client = clientOf(server);
    QVERIFY(client->connectToServer());
    client->write("a");
    QCOMPARE(observer.kinds(), QStringList());
    client->disconnectFromServer();
    client->disconnectFromServer();
    QCOMPARE(observer.kinds(), QStringList{u"none"_s});

    // Connecting again ends the previous exchange, and so does the destructor.
    {
        const auto twice = clientOf(server);
        QVERIFY(twice->connectToServer());
        QVERIFY(twice->connectToServer());
        QCOMPARE(observer.reports.size(), 2);
    }
    QCOMPARE(observer.kinds(), (QStringList{u"none"_s, u"none"_s, u"none"_s}));
}

void TestTcpClient::reportsOfAServerThatTakesNothing()
{
    const Server server(4096);
    const RecordingObserver observer;
    const auto client = clientOf(server, 1);
    QVERIFY(client->connectToServer());
    client->write(QByteArray(32 * 1024 * 1024, 'x'));
    client->disconnectFromServer();
    QCOMPARE(observer.only().kind, http::FailureKind::Network);
    QCOMPARE(observer.only().text,
             u"Сервер 127.0.0.1:%1 не принял всё отправленное"_s.arg(server.port));
}

void TestTcpClient::reportsOfALostConnection()
{
    Server server;
    const RecordingObserver observer;
    const auto client = clientOf(server, 5);
    QVERIFY(client->connectToServer());
    server.accept();
    server.reset();
    // The first bytes may go out before the reset is seen.
    for (int count = 0; count < 100; ++count)
        client->write("more");
    client->disconnectFromServer();
    QCOMPARE(observer.only().kind, http::FailureKind::Network);
}

/// The bytes had left this process, but not this machine.
void TestTcpClient::reportsOfAConnectionThatIsResetAtTheEnd()
{
    Server server(4096);
    const RecordingObserver observer;
    const auto client = clientOf(server);
    QVERIFY(client->connectToServer());
    server.accept();
    client->write(QByteArray(16 * 1024, 'x'));
    server.reset();
    client->disconnectFromServer();
    QCOMPARE(observer.only().kind, http::FailureKind::Network);
    QCOMPARE(observer.only().text,
             u"Сервер 127.0.0.1:%1 не принял всё отправленное"_s.arg(server.port));
}

/// It may do so when it has everything; later writes are lost.
void TestTcpClient::reportsOfAConnectionThatTheServerCloses()
{
    for (const bool isWrittenAfterwards : {false, true}) {
        Server server;
        const RecordingObserver observer;
        const auto client = clientOf(server);
        QVERIFY(client->connectToServer());
        client->write("all");
        server.accept();
        char piece[3];
        server.read(piece, sizeof piece);
        server.closeConnection();
        const auto *const socket = client->findChild<QTcpSocket *>();
        QTRY_COMPARE(socket->state(), QAbstractSocket::UnconnectedState);
        if (isWrittenAfterwards)
            client->write("more");
        client->disconnectFromServer();
        QCOMPARE(observer.only().kind,
                 isWrittenAfterwards ? http::FailureKind::Network : http::FailureKind::None);
    }
}

QTEST_GUILESS_MAIN(TestTcpClient)
#include "tst_tcpclient.moc"
