#include "shared/net/keptsockets.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTest>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using curl::KeptSockets;

namespace {

/// Both ends of a TCP connection over the loopback, as the system has them.
class Connection
{
public:
    explicit Connection(int family = AF_INET)
    {
        QTcpServer listener;
        if (!listener.listen(family == AF_INET ? QHostAddress::LocalHost
                                               : QHostAddress::LocalHostIPv6))
            return;
        listener.pauseAccepting();
        client = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in6 six = {};
        sockaddr_in four = {};
        four.sin_family = AF_INET;
        four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        four.sin_port = htons(listener.serverPort());
        six.sin6_family = AF_INET6;
        six.sin6_addr = in6addr_loopback;
        six.sin6_port = htons(listener.serverPort());
        const bool isConnected =
            family == AF_INET
                ? ::connect(client, reinterpret_cast<sockaddr *>(&four), sizeof four) == 0
                : ::connect(client, reinterpret_cast<sockaddr *>(&six), sizeof six) == 0;
        if (isConnected)
            server = ::accept(static_cast<int>(listener.socketDescriptor()), nullptr, nullptr);
    }
    ~Connection()
    {
        closeServer();
        if (client >= 0)
            ::close(client);
    }
    Connection(const Connection &) = delete;

    bool isOpen() const { return server >= 0; }
    int port() const
    {
        sockaddr_in6 address = {};
        socklen_t size = sizeof address;
        ::getsockname(client, reinterpret_cast<sockaddr *>(&address), &size);
        // At the same offset in both address families.
        return ntohs(address.sin6_port);
    }
    void say(const char *words)
    {
        QVERIFY(::send(server, words, std::strlen(words), MSG_NOSIGNAL) > 0);
        awaitSign();
    }
    void closeServer()
    {
        if (server >= 0)
            ::close(server);
        server = -1;
    }
    /// Waits until the client's end shows it.
    void awaitSign() const
    {
        pollfd wait = {client, POLLIN | POLLRDHUP, 0};
        QCOMPARE(::poll(&wait, 1, 10'000), 1);
    }

    int client = -1;

private:
    int server = -1;
};

/// The name of a host that no other test has.
QByteArray newHost()
{
    static int count = 0;
    return "http host" + QByteArray::number(++count) + ".test 80";
}

} // namespace

class TestKeptSockets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void idleSockets_data();
    void idleSockets();
    void unrequestedBytes();
    void closedUnderTheRequest();
    void foundByThePort();
    void closedWhileIdle();
    void closedWhileInUse();
    void idleSocketKeepsItsHost();
    void closedSocketsAreForgotten();
};

void TestKeptSockets::idleSockets_data()
{
    QTest::addColumn<int>("family");
    QTest::newRow("IPv4") << AF_INET;
    QTest::newRow("IPv6") << AF_INET6;
}

void TestKeptSockets::idleSockets()
{
    QFETCH(int, family);
    const QByteArray host = newHost();
    Connection connection(family);
    if (!connection.isOpen() && family == AF_INET6)
        QSKIP("This machine has no IPv6");
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    sockets.noteClosedByServer(host);
    QVERIFY(sockets.take(connection.port()));
    QVERIFY(curl::isReuseAllowed(host));
}

/// Unrequested bytes say nothing about how the host ends connections.
void TestKeptSockets::unrequestedBytes()
{
    const QByteArray host = newHost();
    Connection connection;
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    connection.say("HTTP/1.1 408 Request Timeout\r\n\r\n");
    QVERIFY(!sockets.take(connection.port()));
    QVERIFY(curl::isReuseAllowed(host));
}

void TestKeptSockets::closedUnderTheRequest()
{
    const QByteArray host = newHost();
    Connection connection;
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    connection.closeServer();
    connection.awaitSign();
    QVERIFY(!sockets.take(connection.port()));
    QVERIFY(!curl::isReuseAllowed(host));
}

void TestKeptSockets::foundByThePort()
{
    for (const int family : {AF_INET, AF_INET6}) {
        Connection quiet(family);
        Connection closed(family);
        if (!quiet.isOpen() && family == AF_INET6)
            QSKIP("This machine has no IPv6");
        KeptSockets sockets;
        sockets.opened(quiet.client);
        sockets.opened(closed.client);
        closed.closeServer();
        closed.awaitSign();
        QVERIFY(sockets.take(quiet.port()));
        QVERIFY(!sockets.take(closed.port()));
        // Not one of our sockets, so libcurl decides.
        QVERIFY(sockets.take(1));
    }
}

void TestKeptSockets::closedWhileIdle()
{
    const QByteArray host = newHost();
    const QByteArray other = newHost();
    Connection first;
    Connection second;
    KeptSockets sockets;
    sockets.opened(first.client);
    sockets.opened(second.client);
    sockets.noteKept(first.client, host);
    sockets.noteKept(second.client, other);
    first.closeServer();
    first.awaitSign();
    sockets.noteClosedByServer(other);
    QVERIFY(curl::isReuseAllowed(host));
    sockets.noteClosedByServer(host);
    QVERIFY(!curl::isReuseAllowed(host));
    QVERIFY(curl::isReuseAllowed(other));
}

/// The answer may have announced it; only the end of an idle connection is unannounced.
void TestKeptSockets::closedWhileInUse()
{
    const QByteArray host = newHost();
    Connection connection;
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    QVERIFY(sockets.take(connection.port()));
    connection.closeServer();
    connection.awaitSign();
    sockets.noteClosedByServer(host);
    QVERIFY(curl::isReuseAllowed(host));
}

/// An exchange that failed before it had a connection did not use the one that libcurl names.
void TestKeptSockets::idleSocketKeepsItsHost()
{
    const QByteArray host = newHost();
    const QByteArray other = newHost();
    Connection connection;
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    sockets.noteKept(connection.client, other);
    connection.closeServer();
    connection.awaitSign();
    sockets.noteClosedByServer(other);
    QVERIFY(curl::isReuseAllowed(other));
    sockets.noteClosedByServer(host);
    QVERIFY(!curl::isReuseAllowed(host));
}

void TestKeptSockets::closedSocketsAreForgotten()
{
    const QByteArray host = newHost();
    Connection connection;
    KeptSockets sockets;
    sockets.opened(connection.client);
    sockets.noteKept(connection.client, host);
    connection.closeServer();
    connection.awaitSign();
    sockets.closed(connection.client);
    sockets.noteClosedByServer(host);
    QVERIFY(sockets.take(connection.port()));
    QVERIFY(curl::isReuseAllowed(host));
}

QTEST_GUILESS_MAIN(TestKeptSockets)
#include "tst_keptsockets.moc"
