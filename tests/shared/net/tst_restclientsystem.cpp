#include "rig/loopbackserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/restclientrequests.h"
#include "tests/support/realfunction.h"
#include "tests/support/testsettings.h"

#include <QNetworkReply>
#include <QSemaphore>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <future>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;

// The system calls of RestClient, replaced by functions of this program: libcurl finds them before
// those of the libraries.

namespace {

/// Seconds by which the clock is ahead for the threads that follow it.
std::atomic<int> secondsAhead{0};
thread_local bool followsTestClock = false;

/// The result of connecting in this thread; 0: the real result.
thread_local int connectError = 0;

/// What the system says of a new socket in this thread; 0: the real result.
thread_local int socketError = 0;

/// The results of the next checks of a kept connection, in order; empty: the real ones.
thread_local QList<short> signs;

/// Lookups of slow.test wait for this.
QSemaphore slowLookup;
std::atomic<int> slowLookups{0};

/// What the process does with SIGPIPE during the last lookup.
std::atomic<sighandler_t> pipeHandler{SIG_ERR};

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    static const auto next = realFunction<int(clockid_t, timespec *)>("clock_gettime");
    const int result = next(clock, time);
    if (followsTestClock)
        time->tv_sec += secondsAhead.load();
    return result;
}

extern "C" int getsockopt(int socket, int level, int name, void *value, socklen_t *size) noexcept
{
    static const auto next = realFunction<int(int, int, int, void *, socklen_t *)>("getsockopt");
    const int result = next(socket, level, name, value, size);
    if (connectError != 0 && level == SOL_SOCKET && name == SO_ERROR)
        *static_cast<int *>(value) = connectError;
    return result;
}

extern "C" int socket(int domain, int type, int protocol) noexcept
{
    static const auto next = realFunction<int(int, int, int)>("socket");
    if (socketError == 0)
        return next(domain, type, protocol);
    errno = socketError;
    return -1;
}

extern "C" int poll(pollfd *sockets, nfds_t count, int milliseconds)
{
    static const auto next = realFunction<int(pollfd *, nfds_t, int)>("poll");
    const int result = next(sockets, count, milliseconds);
    const bool isLook = count == 1 && milliseconds == 0 && sockets->events == (POLLIN | POLLRDHUP);
    if (!isLook || signs.isEmpty())
        return result;
    sockets->revents = signs.takeFirst();
    return sockets->revents != 0 ? 1 : 0;
}

extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *hints,
                           addrinfo **result)
{
    static const auto next =
        realFunction<int(const char *, const char *, const addrinfo *, addrinfo **)>("getaddrinfo");
    struct sigaction action = {};
    ::sigaction(SIGPIPE, nullptr, &action);
    pipeHandler = action.sa_handler;
    if (name && std::strcmp(name, "unknown.test") == 0)
        return EAI_NONAME;
    if (name && std::strcmp(name, "slow.test") == 0) {
        ++slowLookups;
        slowLookup.acquire();
        return EAI_NONAME;
    }
    return next(name, service, hints, result);
}

class TestRestClientSystem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void unknownHost();
    void unknownProxy();
    void slowNameLookup();
    void timeoutWhenNoneIsSet_data();
    void timeoutWhenNoneIsSet();
    void connectionsAreKeptForFourSeconds();
    void lateCloseKeepsTrust();
    void closingHostIsForgottenAfterAnHour();
    void connectionThatIsResetAtOnce();
    void processWithTooManyOpenFiles();
    void keptConnectionOutOfStep_data();
    void keptConnectionOutOfStep();
    void signalsAreLeftAlone();
};

void TestRestClientSystem::cleanup()
{
    followsTestClock = false;
    secondsAhead = 0;
    connectError = 0;
    socketError = 0;
    signs.clear();
}

void TestRestClientSystem::unknownHost()
{
    RestClient client;
    client.get(QUrl(u"http://unknown.test/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::HostNotFoundError});
    QCOMPARE(client.errorText().ru(), u"Не найден адрес сервера unknown.test"_s);
    QVERIFY(client.isNetworkError());
    QVERIFY(!client.hasResponse());
}

void TestRestClientSystem::unknownProxy()
{
    const TestSettings settings(u"[network]\nproxy = http://unknown.test:3128\n"_s);
    for (const QString &address : {u"http://service.test/"_s, u"https://service.test/"_s}) {
        RestClient client;
        client.get(QUrl(address), {}, noHeaders);
        QCOMPARE(client.errorCode(), int{QNetworkReply::ProxyNotFoundError});
        QCOMPARE(client.errorText().ru(), u"Не найден адрес прокси-сервера unknown.test:3128"_s);
        QVERIFY(client.isNetworkError());
    }
}

void TestRestClientSystem::slowNameLookup()
{
    QElapsedTimer timer;
    timer.start();
    {
        RestClient client;
        client.setTimeoutMs(200);
        client.get(QUrl(u"http://slow.test/"_s), {}, noHeaders);
        QCOMPARE(client.errorCode(), int{QNetworkReply::TimeoutError});
        QVERIFY(client.isNetworkError());
    }
    // The lookup still hangs, also after its thread has ended.
    std::async(std::launch::async, [] {
        RestClient client;
        client.setTimeoutMs(200);
        client.get(QUrl(u"http://slow.test/"_s), {}, noHeaders);
        return client.errorCode();
    }).get();
    QVERIFY(timer.elapsed() >= 390);
    QVERIFY(timer.elapsed() < 10'000);
    QCOMPARE(slowLookups.load(), 2);
    slowLookup.release(slowLookups);
}

void TestRestClientSystem::timeoutWhenNoneIsSet_data()
{
    QTest::addColumn<std::optional<qint64>>("milliseconds");
    QTest::newRow("unset") << std::optional<qint64>();
    QTest::newRow("0") << std::optional<qint64>(0);
    QTest::newRow("negative") << std::optional<qint64>(-5000);
    QTest::newRow("most negative") << std::optional<qint64>(std::numeric_limits<qint64>::min());
}

void TestRestClientSystem::timeoutWhenNoneIsSet()
{
    QFETCH(std::optional<qint64>, milliseconds);
    LoopbackServer server;
    server.play({LoopbackServer::silence()});

    auto exchange = std::async(std::launch::async, [&server, milliseconds] {
        followsTestClock = true;
        RestClient client;
        if (milliseconds)
            client.setTimeoutMs(*milliseconds);
        client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
        return client.errorText().ru();
    });
    QVERIFY(server.waitForRequests(1));
    secondsAhead = 25;
    // libcurl looks at the clock once a second while it waits.
    QCOMPARE(exchange.wait_for(std::chrono::milliseconds(1500)), std::future_status::timeout);
    secondsAhead = 31;
    QCOMPARE(exchange.get(), u"Сервер 127.0.0.1:%1 не ответил за 30 сек."_s.arg(server.port()));
}

void TestRestClientSystem::connectionsAreKeptForFourSeconds()
{
    followsTestClock = true;
    LoopbackServer server;
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    secondsAhead = 2;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(server.connectionCount(), 1);
    secondsAhead = 2 + 4;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.connectionCount(), 2);
    QVERIFY(server.waitForOpenConnections(1));
}

/// A server may close a connection that was idle for long. That is not a reason to stop keeping
/// connections.
void TestRestClientSystem::lateCloseKeepsTrust()
{
    followsTestClock = true;
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    server.closeConnections();
    secondsAhead = 5;
    for (int count = 0; count < 3; ++count)
        client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.connectionCount(), 2);
}

void TestRestClientSystem::closingHostIsForgottenAfterAnHour()
{
    followsTestClock = true;
    LoopbackServer server;
    RestClient client;
    const auto connectionsOfTwo = [&] {
        const int before = server.connectionCount();
        for (int count = 0; count < 2; ++count)
            client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
        return server.connectionCount() - before;
    };
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    server.closeConnections();
    QCOMPARE(connectionsOfTwo(), 2);
    secondsAhead = 3500;
    QCOMPARE(connectionsOfTwo(), 2);
    secondsAhead = 3601;
    QCOMPARE(connectionsOfTwo(), 1);
}

void TestRestClientSystem::connectionThatIsResetAtOnce()
{
    LoopbackServer server;
    RestClient client;
    connectError = ECONNRESET;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::RemoteHostClosedError});
    QVERIFY(client.isNetworkError());
    connectError = EHOSTUNREACH;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
    QVERIFY(server.requests().isEmpty());
}

void TestRestClientSystem::processWithTooManyOpenFiles()
{
    LoopbackServer server;
    RestClient client;
    socketError = EMFILE;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
    QVERIFY(client.isNetworkError());
    QVERIFY(!client.hasResponse());
    socketError = 0;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.requests().size(), 1);
}

void TestRestClientSystem::keptConnectionOutOfStep_data()
{
    QTest::addColumn<short>("sign");
    QTest::addColumn<int>("connections");
    QTest::newRow("quiet") << short(0) << 1;
    QTest::newRow("unrequested bytes") << short(POLLIN) << 2;
    // From then on the client knows this about the host.
    QTest::newRow("closed") << short(POLLIN | POLLRDHUP) << 3;
    QTest::newRow("broken") << short(POLLERR) << 3;
}

/// libcurl has found the connection usable, and a moment later it is not. Nothing must be sent on
/// it: a POST would be lost.
void TestRestClientSystem::keptConnectionOutOfStep()
{
    QFETCH(short, sign);
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/1"_s), QByteArray("x"), noHeaders);
    // The first check is before libcurl chooses the connection, the second before the request.
    signs = {0, sign};
    client.post(server.url(u"/2"_s), QByteArray("x"), noHeaders);
    QCOMPARE(signs, QList<short>());
    QCOMPARE(client.errorText().ru(), QString());
    client.post(server.url(u"/3"_s), QByteArray("x"), noHeaders);
    QCOMPARE(server.requests().size(), 3);
    QTEST(server.connectionCount(), "connections");
}

/// A handler of signals belongs to the whole process; other threads have requests at the same time.
void TestRestClientSystem::signalsAreLeftAlone()
{
    const sighandler_t before = ::signal(SIGPIPE, SIG_DFL);
    RestClient client;
    client.get(QUrl(u"http://unknown.test/"_s), {}, noHeaders);
    ::signal(SIGPIPE, before);
    QVERIFY(pipeHandler.load() == SIG_DFL);
}

QTEST_GUILESS_MAIN(TestRestClientSystem)
#include "tst_restclientsystem.moc"
