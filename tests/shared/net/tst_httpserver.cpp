#include "shared/net/httpserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// A client that sends raw bytes and gathers what comes back.
class Client
{
public:
    explicit Client(const HttpServer &server, const QByteArray &bytes = QByteArray())
    {
        socket.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(server.port()));
        send(bytes);
    }
    void send(const QByteArray &bytes) { socket.write(bytes); }
    const QByteArray &received()
    {
        answer += socket.readAll();
        return answer;
    }
    bool isClosed() const { return socket.state() == QAbstractSocket::UnconnectedState; }
    /// The bodies of the answers so far, which hold no line ends.
    QByteArrayList bodies()
    {
        QByteArrayList result;
        for (const QByteArray &part : received().split('\n')) {
            if (part.startsWith('<'))
                result.append(part.left(part.indexOf('>') + 1));
        }
        return result;
    }

    QTcpSocket socket;

private:
    QByteArray answer;
};

QByteArray get(const QByteArray &path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: till\r\n\r\n";
}

/// Answers each request with "<verb path body-size>".
class EchoServer : public HttpServer
{
public:
    explicit EchoServer(const Limits &limits = Limits())
        : HttpServer(0, limits)
    {
        connect(this, &HttpServer::requestReceived, this,
                [this](const RequestHeader &header, const QByteArray &body) {
                    bodies.append(body);
                    paths.append(header.getPath());
                    const QByteArray text = "<" + header.getMethod() + " "
                                            + header.getPath().toUtf8() + " "
                                            + QByteArray::number(body.size()) + ">";
                    ResponseHeader answer;
                    answer.setStatusLine(200, u"OK"_s, 1, 1);
                    answer.setContentType(u"application/json"_s);
                    answer.setContentLength(static_cast<int>(text.size()));
                    sendResponse(answer, text);
                });
    }

    QByteArrayList bodies;
    QStringList paths;
};

} // namespace

class TestHttpServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();

    void answerIsSentLetterByLetter();
    void everyVerbArrives_data();
    void everyVerbArrives();
    void pathIsDecoded_data();
    void pathIsDecoded();
    void headerLinesArrive();
    void reasonAndVersionAreTheCallers();
    void lineEndsInAHeaderAreTakenOut();

    void connectionIsKept_data();
    void connectionIsKept();
    void pipelinedRequestsAreAnsweredInTurn();
    void headHasNoBody();
    void bodyArrives_data();
    void bodyArrives();
    void bytewiseRequestArrives();

    void unansweredRequestGetsStatus500();
    void secondAnswerIsNotSent();
    void answerWithoutRequestIsNotSent();

    void listensOnTheLoopbackAddressOnly();
    void takenPortIsReported();
    void portOutOfRangeIsReported_data();
    void portOutOfRangeIsReported();

    void malformedRequestDelaysNoOther_data();
    void malformedRequestDelaysNoOther();
    void idleConnectionsDelayNoRequest();
    void longestSilentConnectionIsClosedFirst();
    void unfinishedRequestIsEnded();
    void slowRequestIsEnded();
    void idleConnectionIsEnded();
    void busyConnectionStays();
    void clientThatReadsNothingIsEnded();
    void clientsMayDisconnectAtAnyTime();
    void serverMayEndWithClientsConnected();

    void curl_data();
    void curl();
    void curlReusesItsConnection();
};

void TestHttpServer::operationsKeepTheirPlaces()
{
    // After the destructors and the five operations for events of QObject.
    struct Next : QObject
    {
        virtual void next() {}
    };
    QCOMPARE(slotOf(&HttpServer::sendResponse), slotOf(&Next::next));
}

void TestHttpServer::answerIsSentLetterByLetter()
{
    EchoServer server;
    Client client(server, get("/status"));
    QTRY_COMPARE(client.received(), "HTTP/1.1 200 OK\r\n"
                                    "Content-Type: application/json\r\n"
                                    "Content-Length: 15\r\n"
                                    "Connection: keep-alive\r\n"
                                    "\r\n"
                                    "<GET /status 0>");
    QVERIFY(!client.isClosed());
}

void TestHttpServer::everyVerbArrives_data()
{
    QTest::addColumn<QByteArray>("verb");
    for (const char *verb : {"GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE",
                             "CONNECT", "PURGE", "get"})
        QTest::newRow(verb) << QByteArray(verb);
}

void TestHttpServer::everyVerbArrives()
{
    QFETCH(QByteArray, verb);
    EchoServer server;
    Client client(server, verb + " /status HTTP/1.1\r\nHost: till\r\n\r\n");
    QTRY_COMPARE(server.paths, QStringList{u"/status"_s});
    QTRY_VERIFY(client.received().startsWith("HTTP/1.1 200 OK\r\n"));
}

void TestHttpServer::pathIsDecoded_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QString>("path");
    // clang-format off
    QTest::newRow("plain")                 << "/start/mindbox/123"_ba           << u"/start/mindbox/123"_s;
    QTest::newRow("root")                  << "/"_ba                            << u"/"_s;
    QTest::newRow("doubled slashes")       << "//messages///mindbox//123/"_ba   << u"//messages///mindbox//123/"_s;
    QTest::newRow("query is left out")     << "/status?a=/b/c"_ba               << u"/status"_s;
    QTest::newRow("fragment is left out")  << "/status#a/b"_ba                  << u"/status"_s;
    QTest::newRow("encoded Cyrillic")      << "/start/%D1%82%D0%B8%D0%BF/1"_ba  << u"/start/тип/1"_s;
    QTest::newRow("raw Cyrillic")          << "/start/тип/1"_ba                 << u"/start/тип/1"_s;
    QTest::newRow("blank and plus")        << "/start/a%20b/1+1"_ba             << u"/start/a b/1+1"_s;
    QTest::newRow("encoded slash")         << "/start/a%2Fb/c%2fd"_ba           << u"/start/a%2Fb/c%2Fd"_s;
    QTest::newRow("encoded percent sign")  << "/start/100%25/1"_ba              << u"/start/100%/1"_s;
    QTest::newRow("encoded question mark") << "/start/a%3Fb/1"_ba               << u"/start/a?b/1"_s;
    QTest::newRow("lone percent sign")     << "/start/100%/1"_ba                << u"/start/100%/1"_s;
    QTest::newRow("not UTF-8")             << "/start/%FF/1"_ba                 << u"/start/\uFFFD/1"_s;
    QTest::newRow("with the server")       << "http://127.0.0.1:28085/status"_ba<< u"/status"_s;
    QTest::newRow("with server, no path")  << "HTTP://till"_ba                  << u"/"_s;
    QTest::newRow("dots stay")             << "/a/../status"_ba                 << u"/a/../status"_s;
    QTest::newRow("asterisk")              << "*"_ba                            << u"*"_s;
    // clang-format on
}

void TestHttpServer::pathIsDecoded()
{
    QFETCH(QByteArray, target);
    EchoServer server;
    Client client(server, get(target));
    QFETCH(QString, path);
    QTRY_COMPARE(server.paths, QStringList{path});
}

void TestHttpServer::headerLinesArrive()
{
    HttpServer server(0);
    QSignalSpy requests(&server, &HttpServer::requestReceived);
    Client client(server, "GET / HTTP/1.1\r\nhost: till\r\nX-Card:  4 2 \r\n\r\n");
    QTRY_COMPARE(requests.size(), 1);
    const auto header = requests[0][0].value<RequestHeader>();
    QCOMPARE(header.value("Host"), "till");
    QCOMPARE(header.value("x-card"), "4 2");
    QVERIFY(!header.contains("X-Other"));
}

void TestHttpServer::reasonAndVersionAreTheCallers()
{
    HttpServer server(0);
    connect(&server, &HttpServer::requestReceived, &server, [&server] {
        ResponseHeader header;
        header.setStatusLine(299, u"Всё хорошо"_s, 1, 0);
        server.sendResponse(header, "x");
    });
    Client client(server, get("/"));
    QTRY_COMPARE(client.received(), "HTTP/1.0 299 Всё хорошо\r\n"
                                    "Content-Length: 1\r\n"
                                    "Connection: keep-alive\r\n"
                                    "\r\n"
                                    "x");
}

void TestHttpServer::lineEndsInAHeaderAreTakenOut()
{
    ResponseHeader header;
    header.setStatusLine(200, u"OK\r\nA: b"_s, 1, 1);
    header.setContentType(u"text/plain\r\nC: d"_s);
    QCOMPARE(header.statusLine().count('\n') + header.toByteArray().count('\n'), 2);
}

void TestHttpServer::connectionIsKept_data()
{
    QTest::addColumn<QByteArray>("head");
    QTest::addColumn<bool>("isKept");
    // clang-format off
    QTest::newRow("1.1")               << "HTTP/1.1\r\n"_ba                            << true;
    QTest::newRow("1.1 close")         << "HTTP/1.1\r\nConnection: Close\r\n"_ba       << false;
    QTest::newRow("1.0")               << "HTTP/1.0\r\n"_ba                            << false;
    QTest::newRow("1.0 keep-alive")    << "HTTP/1.0\r\nConnection: Keep-Alive\r\n"_ba  << true;
    // clang-format on
}

void TestHttpServer::connectionIsKept()
{
    QFETCH(QByteArray, head);
    QFETCH(bool, isKept);
    EchoServer server;
    Client client(server, "GET /1 " + head + "\r\n");
    QTRY_COMPARE(client.bodies(), QByteArrayList{"<GET /1 0>"});
    QCOMPARE(client.received().contains("Connection: keep-alive\r\n"), isKept);
    if (!isKept) {
        QTRY_VERIFY(client.isClosed());
        return;
    }
    client.send("GET /2 " + head + "\r\n");
    QTRY_COMPARE(client.bodies().size(), 1 + 0);
    QTRY_VERIFY(client.received().endsWith("<GET /2 0>"));
}

void TestHttpServer::pipelinedRequestsAreAnsweredInTurn()
{
    EchoServer server;
    QByteArray requests;
    QStringList paths;
    for (int i = 0; i < 500; ++i) {
        requests += i % 2 ? get("/" + QByteArray::number(i))
                          : "POST /" + QByteArray::number(i)
                                + " HTTP/1.1\r\nContent-Length: 5\r\n\r\n12345";
        paths.append(u"/%1"_s.arg(i));
    }
    Client client(server, requests);
    QTRY_VERIFY(client.received().endsWith("<GET /499 0>"));
    QCOMPARE(server.paths, paths);
    QCOMPARE(client.received().count("HTTP/1.1 200 OK"), 500);
}

void TestHttpServer::headHasNoBody()
{
    EchoServer server;
    Client client(server, "HEAD /status HTTP/1.1\r\n\r\n");
    QTRY_VERIFY(client.received().endsWith("\r\n\r\n"));
    QVERIFY(client.received().contains("Content-Length: 16\r\n"));
    client.send(get("/1"));
    QTRY_VERIFY(client.received().endsWith("\r\n\r\n<GET /1 0>"));
    QVERIFY(!client.received().contains("<HEAD"));
}

void TestHttpServer::bodyArrives_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("body");
    const QByteArray large(900 * 1024, 'x');
    const auto sized = [](const QByteArray &body) {
        return "POST /b HTTP/1.1\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n"
               + body;
    };
    const QByteArray chunked = "POST /b HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"_ba;
    // clang-format off
    QTest::newRow("none")           << sized("")                                             << ""_ba;
    QTest::newRow("text")           << sized("{\"а\":1}\r\n\r\n")                            << "{\"а\":1}\r\n\r\n"_ba;
    QTest::newRow("900 KiB")        << sized(large)                                          << large;
    QTest::newRow("one chunk")      << chunked + "5\r\nabcde\r\n0\r\n\r\n"                   << "abcde"_ba;
    QTest::newRow("chunks")         << chunked + "5\r\nabcde\r\n3\r\nfgh\r\n0\r\n\r\n"       << "abcdefgh"_ba;
    QTest::newRow("empty chunked")  << chunked + "0\r\n\r\n"                                 << ""_ba;
    // clang-format on
}

void TestHttpServer::bodyArrives()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, body);
    EchoServer server;
    Client client(server, request);
    QTRY_COMPARE(server.bodies.size(), 1);
    QVERIFY(server.bodies.first() == body);
    client.send(get("/after"));
    QTRY_VERIFY(client.received().endsWith("<GET /after 0>"));
}

void TestHttpServer::bytewiseRequestArrives()
{
    // Of the longest line and its '\r'; the lines of the header do not count.
    EchoServer server({.requestLineBytes = 27});
    const QByteArray requests = "POST /b?q HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"_ba
                                + get("/тип%20%2F") + "\r\n" + get("//last");
    Client client(server);
    client.socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    for (const char byte : requests) {
        client.send(QByteArray(1, byte));
        QTRY_COMPARE(client.socket.bytesToWrite(), 0);
    }
    QTRY_COMPARE(server.paths, (QStringList{u"/b"_s, u"/тип %2F"_s, u"//last"_s}));
    QCOMPARE(server.bodies.first(), "abc");
}

void TestHttpServer::unansweredRequestGetsStatus500()
{
    HttpServer server(0);
    Client client(server, get("/1") + get("/2"));
    QTRY_COMPARE(client.received().count("HTTP/1.1 500 Internal Server Error\r\n"
                                         "Content-Length: 0\r\n"),
                 2);
}

void TestHttpServer::secondAnswerIsNotSent()
{
    LogCapture log(u"httpserver"_s);
    HttpServer server(0);
    connect(&server, &HttpServer::requestReceived, &server, [&server] {
        server.sendResponse(ResponseHeader(), "<first>");
        server.sendResponse(ResponseHeader(), "<second>");
    });
    Client client(server, get("/") + "GET / HTTP/1.0\r\n\r\n");
    QTRY_VERIFY(client.isClosed());
    QCOMPARE(client.received().count("<first>"), 2);
    QCOMPARE(client.received().count("<second>"), 0);
    QCOMPARE(log.lines().size(), 2);
}

void TestHttpServer::answerWithoutRequestIsNotSent()
{
    LogCapture log(u"httpserver"_s);
    EchoServer server;
    server.sendResponse(ResponseHeader(), "<early>");
    QCOMPARE(log.lines().size(), 1);
    Client client(server, get("/"));
    QTRY_COMPARE(client.bodies().size(), 0);
    QTRY_VERIFY(client.received().endsWith("<GET / 0>"));
    server.sendResponse(ResponseHeader(), "<late>");
    QCOMPARE(log.lines().size(), 2);
}

void TestHttpServer::listensOnTheLoopbackAddressOnly()
{
    EchoServer server;
    const auto port = static_cast<quint16>(server.port());
    QTcpSocket loopback;
    loopback.connectToHost(u"127.0.0.1"_s, port);
    QTRY_COMPARE(loopback.state(), QAbstractSocket::ConnectedState);
    // Another address of this machine.
    QTcpSocket other;
    other.connectToHost(u"127.0.0.2"_s, port);
    QTRY_COMPARE(other.error(), QAbstractSocket::ConnectionRefusedError);
}

void TestHttpServer::takenPortIsReported()
{
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::LocalHost));
    HttpServer server(other.serverPort());
    QVERIFY2(server.listenError().contains(u"in use"), qPrintable(server.listenError()));
    QCOMPARE(server.port(), 0);
    QCOMPARE(HttpServer(0).listenError(), QString());
    server.sendResponse(ResponseHeader(), "x");
}

void TestHttpServer::portOutOfRangeIsReported_data()
{
    QTest::addColumn<int>("port");
    QTest::newRow("negative") << -1;
    QTest::newRow("too high") << 65536;
    // The port in the low 16 bits of the number.
    QTest::newRow("far too high") << 65536 + 28085;
}

void TestHttpServer::portOutOfRangeIsReported()
{
    QFETCH(int, port);
    HttpServer server(port);
    QVERIFY(!HttpServer::isPort(port));
    QVERIFY(server.listenError().contains(QString::number(port)));
    QCOMPARE(server.port(), 0);
}

void TestHttpServer::malformedRequestDelaysNoOther_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isClosed");
    QTest::addColumn<QByteArray>("status");
    const QByteArray mega(1024 * 1024, 'a');
    const auto post = [](const QByteArray &lines) {
        return "POST / HTTP/1.1\r\n" + lines;
    };
    const QByteArray none;
    // Newer versions of Qt close the connection before an answer is possible.
    const QByteArray toWebSocket = QT_VERSION < QT_VERSION_CHECK(6, 8, 0) ? "200"_ba : none;
    // clang-format off
    QTest::newRow("nothing")                  << none                                                 << false << none;
    QTest::newRow("blank lines")              << "\r\n\r\n\n\n"_ba                                    << false << none;
    QTest::newRow("half a line")              << "GET /sta"_ba                                        << false << none;
    QTest::newRow("no blank line")            << "GET / HTTP/1.1\r\nHost: x\r\n"_ba                   << false << none;
    QTest::newRow("no verb")                  << "/status\r\n\r\n"_ba                                 << true  << none;
    QTest::newRow("two words")                << "GET /status\r\n\r\n"_ba                             << true  << none;
    QTest::newRow("other protocol")           << "EHLO till.local SMTP\r\n\r\n"_ba                    << true  << none;
    QTest::newRow("garbage")                  << QByteArray(5000, '\x01') + "\r\n\r\n"                << true  << none;
    QTest::newRow("zeros")                    << QByteArray(5000, '\0') + "\n"                        << true  << none;
    QTest::newRow("TLS")                      << QByteArray::fromHex("160301020001000a") + "\n"       << true  << none;
    QTest::newRow("1 MiB line, whole")        << get("/" + mega)                                      << true  << "414"_ba;
    QTest::newRow("1 MiB line, no end")       << "GET /" + mega                                       << true  << "414"_ba;
    QTest::newRow("8 MiB line, no end")       << mega + mega + mega + mega + mega + mega + mega + mega<< true  << none;
    QTest::newRow("2 MiB of header")          << "GET / HTTP/1.1\r\nA: " + mega + mega                << true  << none;
    QTest::newRow("body over the limit")      << post("Content-Length: 9000000\r\n\r\n") + mega + mega << true << none;
    QTest::newRow("chunks over the limit")    << post("Transfer-Encoding: chunked\r\n\r\n300000\r\n") + mega + mega << true << none;
    QTest::newRow("boundless length")         << post("Content-Length: 9223372036854775807\r\n\r\nabc") << false << none;
    QTest::newRow("length past 64 bits")      << post("Content-Length: 99999999999999999999\r\n\r\n") << false << "200"_ba;
    QTest::newRow("negative length")          << post("Content-Length: -5\r\n\r\n")                   << false << "200"_ba;
    QTest::newRow("length is not a number")   << post("Content-Length: five\r\n\r\n")                 << false << "200"_ba;
    QTest::newRow("negative chunk")           << post("Transfer-Encoding: chunked\r\n\r\n-5\r\nabcde") << false << none;
    QTest::newRow("boundless chunk")          << post("Transfer-Encoding: chunked\r\n\r\n7fffffffffffffff\r\nabcde") << false << none;
    QTest::newRow("chunk past 64 bits")       << post("Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\nabcde") << false << none;
    QTest::newRow("chunk is not a number")    << post("Transfer-Encoding: chunked\r\n\r\nxyz\r\nabcde\r\n") << true << none;
    QTest::newRow("change to WebSocket")      << "GET /ws HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n\r\n"_ba << true << toWebSocket;
    QTest::newRow("bad host")                 << "GET / HTTP/1.1\r\nHost: a:b:c[]%\r\n\r\n"_ba        << false << "200"_ba;
    QTest::newRow("header without colon")     << "GET / HTTP/1.1\r\nnonsense\r\n\r\n"_ba              << false << none;
    // clang-format on
}

void TestHttpServer::malformedRequestDelaysNoOther()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, isClosed);
    QFETCH(QByteArray, status);
    EchoServer server;
    Client strange(server, bytes);
    QTRY_VERIFY(strange.socket.state() != QAbstractSocket::ConnectingState);
    if (!isClosed)
        QTRY_COMPARE(strange.socket.bytesToWrite(), 0);

    Client other(server, get("/status"));
    QTRY_VERIFY(other.received().endsWith("<GET /status 0>"));

    if (!status.isEmpty())
        QTRY_VERIFY2(strange.received().startsWith("HTTP/1.1 " + status),
                     strange.received().left(99));
    if (isClosed)
        QTRY_VERIFY(strange.isClosed());
    else
        QVERIFY(!strange.isClosed());
}

void TestHttpServer::idleConnectionsDelayNoRequest()
{
    EchoServer server;
    std::vector<std::unique_ptr<Client>> idle;
    for (int i = 0; i < 500; ++i)
        idle.push_back(std::make_unique<Client>(server, i % 2 ? "GET /half" : ""));
    const auto isConnected = [](const auto &client) {
        return client->socket.state() != QAbstractSocket::ConnectingState;
    };
    QTRY_VERIFY(std::all_of(idle.begin(), idle.end(), isConnected));

    for (int i = 0; i < 10; ++i) {
        Client client(server, get("/status"));
        QTRY_VERIFY(client.received().endsWith("<GET /status 0>"));
    }
    const auto open = [&idle] {
        return std::count_if(idle.begin(), idle.end(),
                             [](const auto &client) { return !client->isClosed(); });
    };
    // Each of the ten may have cost one of the idle, not more.
    const int limit = HttpServer::Limits().connections;
    QVERIFY2(open() <= limit && open() >= limit - 10, QByteArray::number(qint64(open())));
}

void TestHttpServer::longestSilentConnectionIsClosedFirst()
{
    EchoServer server({.connections = 2});
    Client first(server, get("/1"));
    QTRY_VERIFY(first.received().endsWith("<GET /1 0>"));
    Client second(server, get("/2"));
    QTRY_VERIFY(second.received().endsWith("<GET /2 0>"));
    first.send(get("/3"));
    QTRY_VERIFY(first.received().endsWith("<GET /3 0>"));

    Client third(server, get("/4"));
    QTRY_VERIFY(third.received().endsWith("<GET /4 0>"));
    QTRY_VERIFY(second.isClosed());
    QVERIFY(!first.isClosed());
}

void TestHttpServer::unfinishedRequestIsEnded()
{
    EchoServer server({.requestTime = 1s});
    Client silent(server);
    Client half(server, "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nab");
    QTRY_VERIFY(silent.isClosed());
    QTRY_VERIFY(half.isClosed());
    QCOMPARE(half.received(), "");
}

void TestHttpServer::slowRequestIsEnded()
{
    EchoServer server({.requestTime = 1s});
    Client client(server, get("/1"));
    QTRY_VERIFY(client.received().endsWith("<GET /1 0>"));
    // It goes on sending, and never ends.
    client.send("GET / HTTP/1.1\r\n");
    QTimer drip;
    connect(&drip, &QTimer::timeout, this, [&client] { client.send("A: b\r\n"); });
    drip.start(20);
    QTRY_VERIFY(client.isClosed());
}

void TestHttpServer::idleConnectionIsEnded()
{
    EchoServer server({.requestTime = 60s, .idleTime = 1s});
    Client client(server, get("/1"));
    QTRY_VERIFY(client.received().endsWith("<GET /1 0>"));
    QVERIFY(!client.isClosed());
    QTRY_VERIFY(client.isClosed());
}

void TestHttpServer::busyConnectionStays()
{
    EchoServer server({.requestTime = 1s, .idleTime = 1s});
    Client client(server);
    QElapsedTimer clock;
    clock.start();
    // Each request restarts the time limit, so the sum may be longer.
    int count = 0;
    while (clock.elapsed() < 1500) {
        client.send(get("/" + QByteArray::number(++count)));
        const QByteArray end = "<GET /" + QByteArray::number(count) + " 0>";
        QTRY_VERIFY(client.received().endsWith(end));
    }
    QVERIFY(!client.isClosed());
}

void TestHttpServer::clientThatReadsNothingIsEnded()
{
    EchoServer server({.idleTime = 1s});
    Client greedy(server);
    greedy.socket.setReadBufferSize(1);
    QTRY_COMPARE(greedy.socket.state(), QAbstractSocket::ConnectedState);
    const QByteArray burst = get("/" + QByteArray(8000, 'a')).repeated(100);
    for (int i = 0; i < 40; ++i)
        greedy.send(burst);
    Client other(server, get("/status"));
    QTRY_VERIFY(other.received().endsWith("<GET /status 0>"));
    QTRY_VERIFY_WITH_TIMEOUT(greedy.isClosed(), 20'000);
    QVERIFY(server.paths.size() < 4000);
}

void TestHttpServer::clientsMayDisconnectAtAnyTime()
{
    EchoServer server;
    const QByteArray request = "POST /b HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"_ba;
    for (int length = 0; length <= request.size(); ++length) {
        Client client(server, request.left(length));
        QTRY_COMPARE(client.socket.state(), QAbstractSocket::ConnectedState);
        QTRY_COMPARE(client.socket.bytesToWrite(), 0);
        if (length % 2)
            client.socket.abort();
        else
            client.socket.disconnectFromHost();
    }
    Client client(server, get("/status"));
    QTRY_VERIFY(client.received().endsWith("<GET /status 0>"));
}

void TestHttpServer::serverMayEndWithClientsConnected()
{
    auto server = std::make_unique<EchoServer>();
    Client idle(*server);
    Client half(*server, "GET /st");
    Client done(*server, get("/1"));
    QTRY_VERIFY(done.received().endsWith("<GET /1 0>"));
    server.reset();
    QTRY_VERIFY(done.isClosed());
    QTRY_VERIFY(half.isClosed());
    QTRY_VERIFY(idle.isClosed());
}

void TestHttpServer::curl_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("output");
    const QString large = QString(300'000, u'x');
    // clang-format off
    QTest::newRow("plain")        << QStringList{}                                    << u"/status"_s          << "<GET /status 0>"_ba;
    QTest::newRow("1.0")          << QStringList{u"--http1.0"_s}                      << u"/status"_s          << "<GET /status 0>"_ba;
    QTest::newRow("slashes")      << QStringList{u"--path-as-is"_s}                   << u"//status/"_s        << "<GET //status/ 0>"_ba;
    QTest::newRow("Cyrillic")     << QStringList{}                                    << u"/start/%D1%82/1"_s  << "<GET /start/т/1 0>"_ba;
    QTest::newRow("POST")         << QStringList{u"-d"_s, u"abc"_s}                   << u"/x"_s               << "<POST /x 3>"_ba;
    QTest::newRow("PUT")          << QStringList{u"-X"_s, u"PUT"_s, u"-d"_s, u"ab"_s} << u"/x"_s               << "<PUT /x 2>"_ba;
    QTest::newRow("chunked")      << QStringList{u"-H"_s, u"Transfer-Encoding: chunked"_s, u"-d"_s, u"abcde"_s} << u"/x"_s << "<POST /x 5>"_ba;
    QTest::newRow("100-continue") << QStringList{u"-H"_s, u"Expect: 100-continue"_s, u"-d"_s, u"abcd"_s} << u"/x"_s << "<POST /x 4>"_ba;
    QTest::newRow("close")        << QStringList{u"-H"_s, u"Connection: close"_s}     << u"/x"_s               << "<GET /x 0>"_ba;
    QTest::newRow("HEAD")         << QStringList{u"-I"_s, u"-o"_s, u"/dev/null"_s, u"-w"_s, u"%{http_code} %header{content-length}"_s} << u"/x"_s << "200 11"_ba;
    // clang-format on
}

void TestHttpServer::curl()
{
    QFETCH(QStringList, options);
    QFETCH(QString, path);
    EchoServer server;
    QProcess curl;
    curl.start(u"curl"_s,
               QStringList{u"-sS"_s, u"--noproxy"_s, u"*"_s, u"--max-time"_s, u"20"_s} + options
                   + QStringList{u"http://127.0.0.1:%1%2"_s.arg(server.port()).arg(path)});
    QTRY_COMPARE_WITH_TIMEOUT(curl.state(), QProcess::NotRunning, 30'000);
    QCOMPARE(curl.readAllStandardError(), "");
    QTEST(curl.readAllStandardOutput(), "output");
    QCOMPARE(curl.exitCode(), 0);
}

void TestHttpServer::curlReusesItsConnection()
{
    EchoServer server;
    const QString url = u"http://127.0.0.1:%1/"_s.arg(server.port());
    QProcess curl;
    curl.start(u"curl"_s, {u"-sS"_s, u"--noproxy"_s, u"*"_s, u"-w"_s, u"(%{num_connects})"_s,
                           url + u"1"_s, url + u"2"_s, url + u"3"_s});
    QTRY_COMPARE_WITH_TIMEOUT(curl.state(), QProcess::NotRunning, 30'000);
    QCOMPARE(curl.readAllStandardOutput(), "<GET /1 0>(1)<GET /2 0>(0)<GET /3 0>(0)");
}

QTEST_GUILESS_MAIN(TestHttpServer)
#include "tst_httpserver.moc"
