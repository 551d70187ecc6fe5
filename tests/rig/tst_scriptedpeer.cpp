#include "rig/authority.h"
#include "rig/error.h"
#include "rig/scriptedpeer.h"
#include "rig/waiting.h"

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <chrono>
#include <memory>
#include <thread>

using namespace Qt::StringLiterals;
using namespace rig;

/// A caller that speaks to the peer byte by byte.
class Caller
{
public:
    explicit Caller(const ScriptedPeer &peer) { socket.connectToHost(u"127.0.0.1"_s, peer.port()); }

    /// Sends the bytes and waits until the connection has ended or `enough` has arrived.
    QByteArray exchange(const QByteArray &bytes, const QByteArray &enough = "\r\n\r\n")
    {
        if (!bytes.isEmpty())
            socket.write(bytes);
        QByteArray received;
        waitUntil([&] {
            received += socket.readAll();
            return received.contains(enough) || isClosed();
        });
        return received;
    }
    bool isClosed() const { return socket.state() == QAbstractSocket::UnconnectedState; }

    QTcpSocket socket;
};

class TestScriptedPeer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void playsRepliesInOrder();
    void playsRepliesInAnyOrder();
    void failures_data();
    void failures();
    void playsAFailureBeforeItsScript_data();
    void playsAFailureBeforeItsScript();
    void answersLate();
    void forgetsACallerThatGaveUp();
    void failsOverPlainTcp();
    void holdsReplies();
    void choosesReplies();
    void choosesRepliesOverTls();
    void refusesWhileDown();
    void namesMissingRequests();
    void takesWhatTcpCallersLeft();
    void reservedPortRefuses();
    void reservedPortIsOurs();
    void portTakenForAMoment();
};

namespace {

Exchange exchange(const QString &line, int status)
{
    Exchange result;
    result.request = line;
    result.reply.status = status;
    return result;
}

PeerScript script(const QList<Exchange> &exchanges)
{
    PeerScript result;
    result.name = u"http"_s;
    result.exchanges = exchanges;
    return result;
}

QByteArray get(const QByteArray &path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n";
}

} // namespace

void TestScriptedPeer::playsRepliesInOrder()
{
    ScriptedPeer peer;
    peer.play(script({exchange(u"GET /a"_s, 200), exchange(u"GET /b"_s, 201)}));
    Caller caller(peer);
    QVERIFY(caller.exchange(get("/a")).startsWith("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"));
    QVERIFY(caller.exchange(get("/c")).startsWith("HTTP/1.1 201 "));
    QVERIFY(caller.exchange(get("/d")).startsWith("HTTP/1.1 500 "));
    QCOMPARE(peer.arrived(), 3);
    QVERIFY(peer.isComplete());
    QCOMPARE(peer.findings(),
             (QStringList{u"peer http, request 2: request line\n  - GET /b\n  + GET /c"_s,
                          u"peer http: request 3 was not expected:\nGET /d\nHost: x\n(empty)"_s}));
}

void TestScriptedPeer::playsRepliesInAnyOrder()
{
    PeerScript any = script({exchange(u"GET /a"_s, 200), exchange(u"GET /b"_s, 201)});
    any.anyOrder = true;
    ScriptedPeer peer;
    peer.play(any);
    Caller caller(peer);
    QVERIFY(caller.exchange(get("/b")).startsWith("HTTP/1.1 201 "));
    QVERIFY(caller.exchange(get("/a")).startsWith("HTTP/1.1 200 "));
    QCOMPARE(peer.findings(), QStringList());
}

void TestScriptedPeer::failures_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QByteArray>("received");

    Reply reply;
    reply.manner = Reply::Manner::Close;
    QTest::newRow("close") << reply << QByteArray();
    reply.manner = Reply::Manner::Reset;
    QTest::newRow("reset") << reply << QByteArray();
    reply.manner = Reply::Manner::Raw;
    reply.body = "no HTTP";
    QTest::newRow("raw") << reply << QByteArray("no HTTP");
    reply.manner = Reply::Manner::Answer;
    reply.cutAfter = 3;
    QTest::newRow("cut off") << reply
                             << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nno ");
}

void TestScriptedPeer::failures()
{
    QFETCH(Reply, reply);
    Exchange failing = exchange(u"GET /"_s, 200);
    failing.reply = reply;
    ScriptedPeer peer;
    peer.play(script({failing}));
    Caller caller(peer);
    QTEST(caller.exchange(get("/"), "never"), "received");
    QVERIFY(caller.isClosed());
    QCOMPARE(caller.socket.error(), QAbstractSocket::RemoteHostClosedError);
    QCOMPARE(peer.findings(), QStringList());
}

void TestScriptedPeer::playsAFailureBeforeItsScript_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("received");
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("shown"); // the traffic that is told of

    const auto row = [](const char *name, Failure::Kind kind, int status,
                        const QByteArray &received, QAbstractSocket::SocketError error, int shown) {
        QTest::newRow(name) << int(kind) << status << received << int(error) << shown;
    };
    // clang-format off
    row("refused", Failure::Kind::Refuse, 0,   {}, QAbstractSocket::ConnectionRefusedError, 0);
    row("closed",  Failure::Kind::Close,  0,   {}, QAbstractSocket::RemoteHostClosedError,  1);
    row("503",     Failure::Kind::Status, 503, "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n", QAbstractSocket::UnknownSocketError, 1);
    row("404",     Failure::Kind::Status, 404, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", QAbstractSocket::UnknownSocketError, 1);
    // clang-format on
}

void TestScriptedPeer::playsAFailureBeforeItsScript()
{
    QFETCH(int, kind);
    QFETCH(int, status);
    QFETCH(int, shown);
    ScriptedPeer peer;
    QList<Traffic> traffic;
    connect(&peer, &ScriptedPeer::exchanged, this,
            [&](const Traffic &one) { traffic.append(one); });
    peer.play(script({exchange(u"GET /a"_s, 201)}));
    peer.fail({.kind = Failure::Kind(kind), .status = status});

    Caller failing(peer);
    QTEST(failing.exchange(get("/a")), "received");
    QTEST(int(failing.socket.error()), "error");
    QCOMPARE(traffic.size(), shown);
    for (const Traffic &one : std::as_const(traffic)) {
        QVERIFY(one.isFailure);
        QCOMPARE(one.status, status);
        QCOMPARE(one.request.line(), u"GET /a"_s);
    }
    // The script has not begun, so no fault is reported.
    QCOMPARE(peer.arrived(), 0);
    QCOMPARE(peer.findings(), QStringList{u"peer http: exchange 1 never came: GET /a"_s});

    peer.recover();
    Caller delivered(peer);
    QVERIFY(delivered.exchange(get("/a")).startsWith("HTTP/1.1 201 "));
    QCOMPARE(peer.findings(), QStringList());
    QVERIFY(!traffic.last().isFailure);
    QCOMPARE(traffic.last().status, 201);
}

void TestScriptedPeer::answersLate()
{
    ScriptedPeer peer;
    peer.play(script({exchange(u"GET /a"_s, 201)}));
    constexpr double late = 0.2;
    peer.fail({.kind = Failure::Kind::Slow, .seconds = late});
    Caller caller(peer);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(caller.exchange(get("/a")).startsWith("HTTP/1.1 201 "));
    QVERIFY(timer.elapsed() >= 1000 * late - 20); // the timer's own precision
    QCOMPARE(peer.findings(), QStringList());
}

void TestScriptedPeer::forgetsACallerThatGaveUp()
{
    ScriptedPeer peer;
    QList<Traffic> traffic;
    connect(&peer, &ScriptedPeer::exchanged, this,
            [&](const Traffic &one) { traffic.append(one); });
    peer.play(script({exchange(u"GET /a"_s, 201)}));
    peer.fail({.kind = Failure::Kind::Slow, .seconds = 0.2});
    Caller impatient(peer);
    impatient.socket.write(get("/a"));
    QVERIFY(waitUntil([&] { return impatient.socket.bytesToWrite() == 0; }));
    impatient.socket.disconnectFromHost();
    QVERIFY(waitUntil([&] { return traffic.size() == 1; }));
    QVERIFY(traffic[0].isFailure);
    QCOMPARE(traffic[0].status, 0);

    peer.recover();
    Caller patient(peer);
    QVERIFY(patient.exchange(get("/a")).startsWith("HTTP/1.1 201 "));
    QCOMPARE(peer.findings(), QStringList());
}

void TestScriptedPeer::failsOverPlainTcp()
{
    PeerScript tcp = script({});
    tcp.kind = PeerScript::Kind::Tcp;
    tcp.greeting = "hello";
    ScriptedPeer peer;
    peer.play(tcp);
    peer.fail({.kind = Failure::Kind::Close});
    Caller closed(peer);
    QCOMPARE(closed.exchange({}, "hello"), QByteArray());
    QVERIFY(closed.isClosed());
    QCOMPARE(peer.findings(), QStringList());

    constexpr double late = 0.2;
    peer.fail({.kind = Failure::Kind::Slow, .seconds = late});
    Caller slow(peer);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(slow.exchange({}, "hello"), QByteArray("hello"));
    QVERIFY(timer.elapsed() >= 1000 * late - 20);
}

void TestScriptedPeer::holdsReplies()
{
    Exchange held = exchange(u"GET /"_s, 200);
    held.reply.held = true;
    ScriptedPeer peer;
    peer.play(script({held}));
    Caller caller(peer);
    caller.socket.write(get("/"));
    QVERIFY(waitUntil([&] { return peer.heldReplies() == 1; }));
    QCOMPARE(caller.socket.bytesAvailable(), 0);
    peer.release();
    QVERIFY(caller.exchange({}).startsWith("HTTP/1.1 200 OK"));
    QCOMPARE(peer.heldReplies(), 0);
}

void TestScriptedPeer::choosesReplies()
{
    ScriptedPeer peer;
    int asked = 0;
    peer.playFreely(PeerScript::Kind::Http, {}, [&asked](const ArrivedRequest &request) {
        ++asked;
        Reply reply;
        reply.body = request.target.toUtf8();
        reply.held = request.target == u"/held";
        reply.delaySeconds = request.target == u"/late" ? 0.05 : 0;
        return reply;
    });
    Caller caller(peer);
    QVERIFY(caller.exchange(get("/late"), "/late").endsWith("\r\n\r\n/late"));
    Caller waiting(peer);
    waiting.socket.write(get("/held"));
    QVERIFY(waitUntil([&] { return peer.heldReplies() == 1; }));
    QCOMPARE(waiting.socket.bytesAvailable(), 0);
    peer.release();
    QVERIFY(waiting.exchange({}, "/held").endsWith("\r\n\r\n/held"));
    QCOMPARE(asked, 2);
    QCOMPARE(peer.findings(), QStringList());
}

void TestScriptedPeer::choosesRepliesOverTls()
{
    ScriptedPeer peer;
    peer.playFreely(
        PeerScript::Kind::Https, {}, [](const ArrivedRequest &) { return Reply(); },
        &Authority::shared());
    QSslSocket socket;
    QSslConfiguration configuration = socket.sslConfiguration();
    configuration.setCaCertificates(QSslCertificate::fromPath(Authority::shared().file()));
    socket.setSslConfiguration(configuration);
    socket.connectToHostEncrypted(u"127.0.0.1"_s, peer.port());
    QVERIFY2(waitUntil([&] { return socket.isEncrypted(); }), qPrintable(socket.errorString()));
    socket.write(get("/a"));
    QVERIFY(waitUntil([&] { return socket.bytesAvailable() > 0; }));
    QVERIFY(socket.readAll().startsWith("HTTP/1.1 200 OK\r\n"));
}

void TestScriptedPeer::refusesWhileDown()
{
    PeerScript asleep = script({exchange(u"GET /"_s, 200)});
    asleep.listening = false;
    ScriptedPeer peer;
    peer.play(asleep);
    for (int round = 0; round < 2; ++round) {
        Caller refused(peer);
        QVERIFY(waitUntil([&] { return refused.isClosed(); }));
        QCOMPARE(refused.socket.error(), QAbstractSocket::ConnectionRefusedError);
        peer.up();
        Caller served(peer);
        const QByteArray reply = served.exchange(get("/"));
        QVERIFY2(reply.startsWith(round == 0 ? "HTTP/1.1 200" : "HTTP/1.1 500"), reply.constData());
        peer.down();
        QVERIFY(waitUntil([&] { return served.isClosed(); }));
    }
}

void TestScriptedPeer::namesMissingRequests()
{
    ScriptedPeer peer;
    peer.play(script({exchange(u"GET /a"_s, 200), exchange(u"GET /b"_s, 200)}));
    Caller caller(peer);
    caller.exchange(get("/a"));
    QVERIFY(!peer.isComplete());
    QCOMPARE(peer.findings(), QStringList{u"peer http: exchange 2 never came: GET /b"_s});
}

void TestScriptedPeer::takesWhatTcpCallersLeft()
{
    Exchange first;
    first.body = u"frame 1"_s;
    Exchange second;
    second.body = u"frame 2"_s;
    PeerScript feed = script({first, second});
    feed.kind = PeerScript::Kind::Tcp;
    feed.greeting = "ready";
    ScriptedPeer peer;
    peer.play(feed);
    const QList<QByteArray> frames{"frame 1", "frame X", "frame 3"};
    for (const QByteArray &frame : frames) {
        Caller caller(peer);
        QCOMPARE(caller.exchange(frame, "ready"), "ready");
        caller.socket.disconnectFromHost();
        waitUntil([&] { return caller.isClosed(); });
    }
    peer.drain();
    QCOMPARE(peer.findings(),
             (QStringList{u"peer http, connection 2: body\n  - frame 2\n  + frame X"_s,
                          u"peer http: connection 3 was not expected, it brought: frame 3"_s}));
}

void TestScriptedPeer::reservedPortRefuses()
{
    const PortReservation reservation;
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, reservation.port());
    QVERIFY(waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; }));
    QCOMPARE(socket.error(), QAbstractSocket::ConnectionRefusedError);
}

void TestScriptedPeer::reservedPortIsOurs()
{
    PortReservation reservation;
    const quint16 port = reservation.port();
    QFile range(u"/proc/sys/net/ipv4/ip_local_port_range"_s);
    QVERIFY(range.open(QIODevice::ReadOnly));
    const int firstOfCallers = range.readAll().simplified().split(' ').value(0).toInt();
    // A machine may use nearly all ports for outgoing connections.
    QVERIFY(port < std::max(firstOfCallers, 10240 + 1024));
    QVERIFY_THROWS_EXCEPTION(Error, PortReservation{port});
    QTcpServer other;
    QVERIFY(!other.listen(QHostAddress::LocalHost, port));
    reservation.lend();
    QVERIFY(other.listen(QHostAddress::LocalHost, port));
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, port);
    QVERIFY(socket.waitForConnected());
}

void TestScriptedPeer::portTakenForAMoment()
{
    auto other = std::make_unique<PortReservation>();
    const quint16 port = other->port();
    std::thread leaving([&other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        other.reset();
    });
    quint16 taken = 0;
    try {
        taken = PortReservation(port).port();
    } catch (const Error &) {
    }
    leaving.join();
    QCOMPARE(taken, port);
}

QTEST_GUILESS_MAIN(TestScriptedPeer)
#include "tst_scriptedpeer.moc"
