#include "rig/deafport.h"
#include "rig/loopbackserver.h"
#include "shared/core/inflight.h"
#include "shared/core/mockfactory.h"
#include "shared/net/exchangeobserver.h"
#include "shared/net/tcpclient.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/hostnames.h"
#include "tests/support/logcapture.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using rig::DeafPort;
using rig::LoopbackServer;

namespace {

const QString opening = u"INFO Отправка сообщения 7"_s;
const QString noServer = u"WARN Не удалось подключиться к серверу"_s;
const QString strange = u"WARN Некорректный ответ от сервера"_s;

QString text(const QJsonObject &body)
{
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

QString eps(const QString &frame, int port, const QString &host = u"127.0.0.1"_s)
{
    return text({{u"message"_s, frame}, {u"host"_s, host}, {u"port"_s, port}});
}

QString dssl(int port, const QString &host = u"127.0.0.1"_s)
{
    return text({{u"body"_s, u"<к %1>"_s}, {u"url"_s, host}, {u"port"_s, port}, {u"timeout"_s, 1}});
}

/// Accepts clients on a free port of 127.0.0.1 without pauses, and treats them at once as the test
/// wants.
class QuickServer
{
public:
    enum class Behaviour
    {
        Answer,
        /// Sends the first part of the answer, and the rest after the client has gone.
        Pieces,
        Reset,
    };

    explicit QuickServer(const QByteArray &answer, Behaviour behaviour = Behaviour::Answer)
        : listener(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        if (::bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0
            || ::listen(listener, 16) != 0
            || ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
            qFatal("no socket to listen on");
        port = ntohs(address.sin_port);
        thread = std::thread([this, answer, behaviour] {
            while (!isDone) {
                const int caller = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK);
                if (caller < 0)
                    continue;
                if (behaviour == Behaviour::Reset) {
                    const linger now{1, 0};
                    ::setsockopt(caller, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
                    ::close(caller);
                    continue;
                }
                const bool isInPieces = behaviour == Behaviour::Pieces;
                send(caller, isInPieces ? answer.left(5) : answer);
                if (isInPieces) {
                    while (!isDone && !hasGone(caller))
                        continue;
                    send(caller, answer.mid(5));
                }
                callers.append(caller);
            }
        });
    }
    ~QuickServer()
    {
        isDone = true;
        thread.join();
        for (const int caller : std::as_const(callers))
            ::close(caller);
        ::close(listener);
    }

    int port = 0;

private:
    static void send(int caller, const QByteArray &bytes)
    {
        // A client that has gone may have reset the connection; then nothing is sent.
        (void)::send(caller, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
    }
    static bool hasGone(int caller)
    {
        char buffer[64];
        const ssize_t count = ::recv(caller, buffer, sizeof(buffer), 0);
        return count == 0 || (count < 0 && errno != EAGAIN);
    }

    int listener;
    std::atomic<bool> isDone = false;
    QList<int> callers;
    std::thread thread;
};

} // namespace

/// The types that speak plain TCP, with real peers.
class TestTcpHandlers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void epsRefused_data();
    void epsRefused();
    void epsEqualMarks_data();
    void epsEqualMarks();
    void epsOtherAnswers_data();
    void epsOtherAnswers();
    void epsAnswerInPieces();
    void epsWithoutAnswer();
    void epsShortFrame_data();
    void epsShortFrame();
    void epsReset();
    void epsSendsTheFrameUnchanged();
    void epsTriesEachAddress();
    void epsHasTimeToConnectAndToWrite();
    void dsslDelivers();
    void dsslSteps();
    void dsslWithoutABody();
    void dsslRefused_data();
    void dsslRefused();
    void dsslDoesNotWaitForAnAnswer();
    void dsslLargeBody();
    void dsslTriesEachAddress();
};

void TestTcpHandlers::epsRefused_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("the port is closed") << eps(u"x"_s, LoopbackServer::unusedPort());
    QTest::newRow("no port") << text({{u"message"_s, u"x"_s}, {u"host"_s, u"127.0.0.1"_s}});
    QTest::newRow("no host") << text({{u"message"_s, u"x"_s}, {u"port"_s, 9}});
    QTest::newRow("empty") << u"{}"_s;
    QTest::newRow("unknown host") << eps(u"x"_s, 9, u"no.such.host.invalid"_s);
    QTest::newRow("port no number")
        << u"{\"message\":\"x\",\"host\":\"127.0.0.1\",\"port\":\"x\"}"_s;
    QTest::newRow("65536 is port 0") << eps(u"x"_s, 65536);
    QTest::newRow("below 0") << eps(u"x"_s, LoopbackServer::unusedPort() - 65536);
}

void TestTcpHandlers::epsRefused()
{
    QFETCH(QString, message);
    const LogCapture log(u"eps"_s);
    QCOMPARE(outcomeOf(u"eps"_s, message), u"kept network: нет соединения с сервером"_s);
    QCOMPARE(log.lines(), (QStringList{opening, noServer}));
}

void TestTcpHandlers::epsEqualMarks_data()
{
    QTest::addColumn<QString>("frame");
    QTest::addColumn<QByteArray>("answer");
    // clang-format off
    QTest::newRow("another head and rest") << u"abc12345678rest"_s << "xyz12345678"_ba;
    QTest::newRow("a longer rest")         << u"abc12345678"_s << "abc12345678 and more"_ba;
    QTest::newRow("two equal short marks") << u"abc1234"_s << "xyz1234"_ba;
    // clang-format on
}

void TestTcpHandlers::epsEqualMarks()
{
    QFETCH(QString, frame);
    QFETCH(QByteArray, answer);
    const QuickServer server(answer);
    // Only an answer that has arrived when the frame is written counts, so several deliveries may
    // be needed until an answer is quick enough.
    QElapsedTimer timer;
    timer.start();
    bool isDone = false;
    while (!isDone && timer.elapsed() < 60'000) {
        const LogCapture log(u"eps"_s);
        isDone = outcomeOf(u"eps"_s, eps(frame, server.port)) == u"delivered";
        QCOMPARE(log.lines(), isDone ? (QStringList{opening, strange}) : QStringList{opening});
    }
    QVERIFY(isDone);
}

void TestTcpHandlers::epsOtherAnswers_data()
{
    QTest::addColumn<QString>("frame");
    QTest::addColumn<QByteArray>("answer");
    // clang-format off
    QTest::newRow("another mark")                << u"abc12345678rest"_s << "abc12345679rest"_ba;
    QTest::newRow("a part of the mark")          << u"abc12345678rest"_s << "abc1234"_ba;
    QTest::newRow("the head alone")              << u"abc12345678rest"_s << "abc"_ba;
    QTest::newRow("a mark for a frame without")  << u"abc"_s << "abc12345678"_ba;
    // clang-format on
}

void TestTcpHandlers::epsOtherAnswers()
{
    QFETCH(QString, frame);
    QFETCH(QByteArray, answer);
    const QuickServer server(answer);
    if (frame == u"abc") {
        // The mark of a missing answer is empty and therefore equal, so an answer must come in time
        // to differ.
        bool differs = false;
        QElapsedTimer timer;
        timer.start();
        while (!differs && timer.elapsed() < 60'000)
            differs = outcomeOf(u"eps"_s, eps(frame, server.port))
                      == u"kept service: метка в ответе не совпала";
        QVERIFY(differs);
        return;
    }
    for (int i = 0; i < 20; ++i) {
        const LogCapture log(u"eps"_s);
        QVERIFY(!deliver(u"eps"_s, eps(frame, server.port)));
        QCOMPARE(log.lines(), QStringList{opening});
    }
}

void TestTcpHandlers::epsAnswerInPieces()
{
    // A part of the mark is not the mark, and the rest is not waited for.
    const QuickServer server("abc12345678rest", QuickServer::Behaviour::Pieces);
    for (int i = 0; i < 20; ++i) {
        const LogCapture log(u"eps"_s);
        QVERIFY(!deliver(u"eps"_s, eps(u"abc12345678rest"_s, server.port)));
        QCOMPARE(log.lines(), QStringList{opening});
    }
}

void TestTcpHandlers::epsWithoutAnswer()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const LogCapture log(u"eps"_s);
    QCOMPARE(outcomeOf(u"eps"_s, eps(u"abc12345678"_s, server.port())),
             u"kept service: ответ ещё не пришёл"_s);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestTcpHandlers::epsShortFrame_data()
{
    QTest::addColumn<QString>("frame");
    QTest::newRow("empty") << u""_s;
    QTest::newRow("one byte") << u"a"_s;
    QTest::newRow("three bytes") << u"abc"_s;
}

void TestTcpHandlers::epsShortFrame()
{
    QFETCH(QString, frame);
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const LogCapture log(u"eps"_s);
    QVERIFY(deliver(u"eps"_s, eps(frame, server.port())));
    QCOMPARE(log.lines(), (QStringList{opening, strange}));
}

void TestTcpHandlers::epsReset()
{
    const QuickServer server(QByteArray(), QuickServer::Behaviour::Reset);
    for (int i = 0; i < 20; ++i) {
        const LogCapture log(u"eps"_s);
        QVERIFY(!deliver(u"eps"_s, eps(u"abc12345678"_s, server.port)));
        // A connection that was closed at once may not have been noticed.
        QVERIFY2(log.lines() == QStringList{opening}
                     || log.lines() == (QStringList{opening, noServer}),
                 qPrintable(log.lines().join(u'\n')));
    }
}

void TestTcpHandlers::epsSendsTheFrameUnchanged()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    QVERIFY(!deliver(u"eps"_s, eps(u"абв %1\r\n\u0001"_s, server.port())));
    QTRY_COMPARE(server.received(), u"абв %1\r\n\u0001"_s.toUtf8());
}

void TestTcpHandlers::epsTriesEachAddress()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const DeafPort deaf("127.0.0.2", server.port());
    setAddressesOf("eps.test", {"127.0.0.2", "127.0.0.1"});
    const LogCapture log(u"eps"_s);
    QVERIFY(deliver(u"eps"_s, eps(u"abc"_s, server.port(), u"eps.test"_s)));
    QCOMPARE(log.lines(), (QStringList{opening, strange}));
    QTRY_COMPARE(server.received(), "abc");
}

void TestTcpHandlers::epsHasTimeToConnectAndToWrite()
{
    // The failed connection is reported within the call.
    struct Watch : http::ExchangeObserver
    {
        void exchangeEnded(const http::ExchangeReport &) override
        {
            deadline = inflight::deliveries().constFirst().deadline;
        }
        inflight::Clock::time_point deadline = {};
    };

    const auto begin = inflight::Clock::now();
    const inflight::DeliveryGuard delivery(u"eps"_s, 7);
    const auto deadlineBefore = inflight::deliveries().constFirst().deadline;
    Watch watch;
    const http::ExchangeObservation observation(watch);
    QVERIFY(!deliver(u"eps"_s, eps(u"abc"_s, LoopbackServer::unusedPort())));
    const auto taken = inflight::Clock::now() - begin;
    // 5 s to connect and 5 s to write, from the beginning of the call.
    QVERIFY(watch.deadline >= deadlineBefore + 10s);
    QVERIFY(watch.deadline <= deadlineBefore + 10s + taken);
}

void TestTcpHandlers::dsslDelivers()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const LogCapture log(u"dssl"_s);
    QCOMPARE(outcomeOf(u"dssl"_s, dssl(server.port())), u"delivered"_s);
    QTRY_COMPARE(server.received(), u"<к %1>"_s.toUtf8());
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestTcpHandlers::dsslSteps()
{
    struct Recording : TcpClient
    {
        void setHost(const QString &host) override { steps += u"host "_s + host; }
        void setPort(int port) override { steps += u"port %1"_s.arg(port); }
        void setTimeout(int timeout) override { steps += u"timeout %1"_s.arg(timeout); }
        bool connectToServer() override
        {
            steps += u"connect"_s;
            return true;
        }
        void disconnectFromServer() override { steps += u"disconnect"_s; }
        void write(const QByteArray &data) override
        {
            steps += u"write "_s + QString::fromUtf8(data);
        }
        QStringList steps;
    };
    const auto client = std::make_shared<Recording>();
    MockFactory<TcpClient>::install(client);
    QVERIFY(deliver(u"dssl"_s, dssl(17)));
    QVERIFY(deliver(u"dssl"_s, u"{\"url\":\"a\"}"_s));
    MockFactory<TcpClient>::install(nullptr);
    QCOMPARE(client->steps,
             (QStringList{u"host 127.0.0.1"_s, u"port 17"_s, u"timeout 1"_s, u"connect"_s,
                          u"write <к %1>"_s, u"disconnect"_s, u"host a"_s, u"port 0"_s,
                          u"timeout 0"_s, u"connect"_s, u"write "_s, u"disconnect"_s}));
}

void TestTcpHandlers::dsslWithoutABody()
{
    LoopbackServer server;
    QVERIFY(deliver(u"dssl"_s, text({{u"url"_s, u"127.0.0.1"_s}, {u"port"_s, server.port()}})));
    QTRY_COMPARE(server.connectionCount(), 1);
    QCOMPARE(server.received(), "");
}

void TestTcpHandlers::dsslRefused_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("kind");
    const QString network = u"kept network"_s;
    const QString request = u"kept request"_s;
    QTest::newRow("the port is closed") << dssl(LoopbackServer::unusedPort()) << network;
    QTest::newRow("no port") << text({{u"url"_s, u"127.0.0.1"_s}}) << request;
    QTest::newRow("no address") << text({{u"port"_s, 9}}) << network;
    QTest::newRow("unknown host") << dssl(9, u"no.such.host.invalid"_s) << network;
    QTest::newRow("a URL is not a host") << dssl(9, u"http://127.0.0.1/"_s) << network;
    QTest::newRow("port above 65535") << dssl(65537) << request;
    QTest::newRow("port below 0") << dssl(-1) << request;
    QTest::newRow("port no number") << u"{\"url\":\"127.0.0.1\",\"port\":\"x\"}"_s << request;
}

void TestTcpHandlers::dsslRefused()
{
    QFETCH(QString, message);
    QFETCH(QString, kind);
    const LogCapture log(u"dssl"_s);
    QCOMPARE(outcomeOf(u"dssl"_s, message).section(u':', 0, 0), kind);
    QCOMPARE(log.lines(),
             (QStringList{opening, u"INFO Не удалось установить соединение с сервером"_s}));
}

void TestTcpHandlers::dsslDoesNotWaitForAnAnswer()
{
    // The server's bytes are not read, and do not reset the connection before it has read its own.
    const QuickServer server("a word nobody wants");
    for (int i = 0; i < 5; ++i)
        QVERIFY(deliver(u"dssl"_s, dssl(server.port)));
}

void TestTcpHandlers::dsslLargeBody()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const QString body = u"ж"_s.repeated(1'000'000);
    QVERIFY(deliver(u"dssl"_s, text({{u"body"_s, body},
                                     {u"url"_s, u"127.0.0.1"_s},
                                     {u"port"_s, server.port()},
                                     {u"timeout"_s, 30}})));
    QTRY_COMPARE_WITH_TIMEOUT(server.received().size(), 2'000'000, 30'000);
}

void TestTcpHandlers::dsslTriesEachAddress()
{
    LoopbackServer server;
    server.play({LoopbackServer::silence()});
    const DeafPort deaf("127.0.0.2", server.port());
    setAddressesOf("dssl.test", {"127.0.0.2", "127.0.0.1"});
    QVERIFY(deliver(u"dssl"_s, dssl(server.port(), u"dssl.test"_s)));
    QTRY_COMPARE(server.received(), u"<к %1>"_s.toUtf8());
}

QTEST_GUILESS_MAIN(TestTcpHandlers)
#include "tst_tcphandlers.moc"
