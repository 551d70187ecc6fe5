#include "rig/loopbackserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/restclientrequests.h"

#include <QNetworkReply>
#include <QTest>

#include <future>
#include <thread>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;
using Reply = LoopbackServer::Reply;

Q_DECLARE_METATYPE(LoopbackServer::Reply)

namespace {

/// For tests that count connections: libcurl keeps five in a thread. Of more, it closes any that
/// was used within the same millisecond.
template <typename Function>
auto inThread(const Function &function)
{
    return std::async(std::launch::async, function).get();
}

} // namespace

/// Which connections are kept, replaced and avoided.
class TestRestClientConnections : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsConnections();
    void reconnectsAfterAFailure();
    void replacesAConnectionThatWasClosed();
    void repeatsOnlyWhatMayBeRepeated_data();
    void repeatsOnlyWhatMayBeRepeated();
    void threadsHaveTheirOwnConnections();
    void hostThatClosesKeptConnections_data();
    void hostThatClosesKeptConnections();
    void announcedCloseKeepsTrust();
    void answerThatBreaksOffKeepsTrust();
};

void TestRestClientConnections::keepsConnections()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, "a"), LoopbackServer::answer(404, "b"),
                 LoopbackServer::raw("HTTP/1.1 204 No Content\r\n\r\n"),
                 LoopbackServer::raw("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n")});
    const int failures = inThread([&server] {
        int count = 0;
        for (const char *verb : {"POST", "PUT", "DELETE", "HEAD", "GET"}) {
            RestClient client; // One for each delivery.
            client.send(params(verb, server.url(u"/"_s), "x"));
            count += client.isNetworkError() ? 1 : 0;
        }
        return count;
    });
    QCOMPARE(failures, 0);
    QCOMPARE(server.requests().size(), 5);
    QCOMPARE(server.connectionCount(), 1);
}

void TestRestClientConnections::reconnectsAfterAFailure()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200), LoopbackServer::silence()});
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray("1"), noHeaders);
    client.setTimeoutMs(100);
    client.post(server.url(u"/"_s), QByteArray("2"), noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::TimeoutError});
    client.setTimeout(0);
    client.post(server.url(u"/"_s), QByteArray("3"), noHeaders);
    QCOMPARE(client.errorCode(), 0);

    const auto requests = server.requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(requests.at(1).connection, 1);
    // A late answer to the second request must not be taken for one to the third.
    QCOMPARE(requests.at(2).connection, 2);
}

void TestRestClientConnections::replacesAConnectionThatWasClosed()
{
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray("1"), noHeaders);
    server.closeConnections();
    client.post(server.url(u"/"_s), QByteArray("2"), noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.requests().size(), 2);
    QCOMPARE(server.connectionCount(), 2);
}

void TestRestClientConnections::repeatsOnlyWhatMayBeRepeated_data()
{
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<LoopbackServer::Reply>("reply");
    QTest::addColumn<bool>("isRepeated");
    const Reply closed = LoopbackServer::raw("").closing();
    const Reply reset = LoopbackServer::raw("").resetting();
    const Reply cutOff = LoopbackServer::raw("HTTP/1.1 200 OK\r\n").closing();
    // The kept connection breaks after the server has read the request.
    // clang-format off
    QTest::newRow("POST")           << QByteArray("POST")   << closed << false;
    QTest::newRow("POST, reset")    << QByteArray("POST")   << reset  << false;
    QTest::newRow("PATCH")          << QByteArray("PATCH")  << closed << false;
    QTest::newRow("unknown verb")   << QByteArray("PAY")    << closed << false;
    QTest::newRow("GET")            << QByteArray("GET")    << closed << true;
    QTest::newRow("PUT")            << QByteArray("PUT")    << closed << true;
    QTest::newRow("DELETE")         << QByteArray("DELETE") << reset  << true;
    QTest::newRow("GET, answered")  << QByteArray("GET")    << cutOff << false;
    // clang-format on
}

void TestRestClientConnections::repeatsOnlyWhatMayBeRepeated()
{
    QFETCH(QByteArray, verb);
    QFETCH(Reply, reply);
    QFETCH(bool, isRepeated);
    for (const QByteArray body : {"x", ""}) {
        LoopbackServer server;
        server.play({LoopbackServer::answer(200), reply, LoopbackServer::answer(200)});
        RestClient client;
        client.get(server.url(u"/first"_s), {}, noHeaders);
        client.send(params(verb, server.url(u"/second"_s), body));

        QCOMPARE(client.errorCode(), isRepeated ? 0 : int{QNetworkReply::RemoteHostClosedError});
        QCOMPARE(client.isNetworkError(), !isRepeated);
        QCOMPARE(server.requests().size(), isRepeated ? 3 : 2);

        // Whatever happened, the connections of the thread work for the next delivery.
        client.post(server.url(u"/third"_s), QByteArray("x"), noHeaders);
        QCOMPARE(client.errorCode(), 0);
    }
}

void TestRestClientConnections::threadsHaveTheirOwnConnections()
{
    LoopbackServer server;
    const auto exchange = [&server] {
        RestClient client;
        for (int count = 0; count < 20; ++count)
            client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    };
    std::thread first(exchange);
    std::thread second(exchange);
    first.join();
    second.join();
    QCOMPARE(server.requests().size(), 40);
    QCOMPARE(server.connectionCount(), 2);
    // A thread that ends leaves no connection open.
    QVERIFY(server.waitForOpenConnections(0));
}

void TestRestClientConnections::hostThatClosesKeptConnections_data()
{
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<std::optional<LoopbackServer::Reply>>("reply");
    QTest::addColumn<int>("errorCode");
    const Reply closed = LoopbackServer::raw("").closing();
    const Reply reset = LoopbackServer::raw("").resetting();
    constexpr int lost = QNetworkReply::RemoteHostClosedError;
    const auto row = [](const char *name, const char *verb, const std::optional<Reply> &reply,
                        int errorCode) {
        QTest::newRow(name) << QByteArray(verb) << reply << errorCode;
    };
    // clang-format off
    row("ahead of a POST",   "POST",  {},     0);
    row("ahead of a GET",    "GET",   {},     0);
    row("under a POST",      "POST",  closed, lost);
    row("reset by a POST",   "POST",  reset,  lost);
    row("under a PATCH",     "PATCH", closed, lost);
    row("under a GET",       "GET",   closed, 0);
    row("reset by a PUT",    "PUT",   reset,  0);
    // clang-format on
}

/// A request that meets such a close is lost, so from then on each request gets its own connection.
void TestRestClientConnections::hostThatClosesKeptConnections()
{
    QFETCH(QByteArray, verb);
    QFETCH(std::optional<Reply>, reply);
    QFETCH(int, errorCode);
    LoopbackServer other;
    LoopbackServer server;
    RestClient client;
    client.send(params(verb, server.url(u"/first"_s), "x"));
    if (reply)
        server.play({*reply});
    else
        server.closeConnections();
    client.send(params(verb, server.url(u"/second"_s), "x"));
    QCOMPARE(client.errorCode(), errorCode);

    // Also when a second connection failed.
    QTRY_COMPARE(server.connectionCount(), 2);

    // The server keeps these open, but the client does not rely on it.
    for (const int connections : {3, 4, 5}) {
        RestClient next;
        next.post(server.url(u"/next"_s), QByteArray("x"), noHeaders);
        QCOMPARE(next.errorCode(), 0);
        QCOMPARE(server.connectionCount(), connections);
    }
    // None of them is left open; the one that replaced a lost one may be.
    QTRY_VERIFY(server.openConnectionCount() <= 1);
    // The next worker knows this, and still trusts other servers.
    inThread([&] {
        for (LoopbackServer *const each : {&server, &server, &other, &other, &other})
            RestClient().post(each->url(u"/thread"_s), QByteArray("x"), noHeaders);
    });
    QCOMPARE(server.connectionCount(), 7);
    QCOMPARE(other.connectionCount(), 1);
}

void TestRestClientConnections::announcedCloseKeepsTrust()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, "a"),
                 LoopbackServer::answer(200, "b", "Connection: close\r\n").closing(),
                 LoopbackServer::raw("HTTP/1.0 200 OK\r\n\r\nc").closing(),
                 LoopbackServer::raw("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nd").closing()});
    const QList<int> connections = inThread([&server] {
        QList<int> counts;
        for (const int open : {1, 0, 0, 0, 1, 1, 1}) {
            RestClient().post(server.url(u"/"_s), QByteArray("x"), noHeaders);
            counts.append(server.waitForOpenConnections(open) ? server.connectionCount() : -1);
        }
        return counts;
    });
    QCOMPARE(connections, (QList<int>{1, 1, 2, 3, 4, 4, 4}));
}

/// The server had begun to answer, so it did not close an idle connection.
void TestRestClientConnections::answerThatBreaksOffKeepsTrust()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200),
                 LoopbackServer::raw("HTTP/1.1 200 OK\r\nX: 1\r\n").resetting()});
    const QList<int> connections = inThread([&server] {
        QList<int> counts;
        for (const int error : {0, int{QNetworkReply::RemoteHostClosedError}, 0, 0}) {
            RestClient client;
            client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
            counts.append(client.errorCode() == error ? server.connectionCount() : -1);
        }
        return counts;
    });
    QCOMPARE(connections, (QList<int>{1, 1, 2, 2}));
}

QTEST_GUILESS_MAIN(TestRestClientConnections)
#include "tst_restclientconnections.moc"
