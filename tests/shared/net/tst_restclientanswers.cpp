#include "rig/loopbackserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/restclientrequests.h"
#include "tests/support/logcapture.h"

#include <QElapsedTimer>
#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;
using Reply = LoopbackServer::Reply;

Q_DECLARE_METATYPE(LoopbackServer::Reply)

namespace {

/// `bytes` as a server sends them with `Content-Encoding: deflate`.
QByteArray deflated(const QByteArray &bytes)
{
    return qCompress(bytes, 9).mid(4);
}

/// "{\"text\":\"Чек\"}", as `gzip -n` packs it.
QByteArray zipped()
{
    return QByteArray::fromBase64("H4sIAAAAAAAAA6tWKkmtKFGyUrqw/MLWC7uUagGoOR7vEQAAAA==");
}

} // namespace

/// How an answer, or a missing one, is judged.
class TestRestClientAnswers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statuses_data();
    void statuses();
    void networkFailures_data();
    void networkFailures();
    void refusedConnection();
    void timeouts_data();
    void timeouts();
    void resetsResultsAtEachExchange();
    void jsonReplies_data();
    void jsonReplies();
    void deepReplies();
    void bodyLimit_data();
    void bodyLimit();
    void unpacks_data();
    void unpacks();
    void keepsWhatItCannotUnpack_data();
    void keepsWhatItCannotUnpack();
    void packedAnswersWithoutABody();
    void codingsOutsideTheHead();
    void largeHeaders_data();
    void largeHeaders();
    void longTrailer();
};

void TestRestClientAnswers::statuses_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("errorCode");
    const QList<std::pair<int, int>> rows = {
        {200, 0},   {201, 0},   {202, 0},   {204, 0},   {226, 0},   {299, 0},   {300, 299},
        {301, 299}, {302, 299}, {303, 299}, {304, 299}, {307, 299}, {308, 299}, {399, 299},
        {400, 302}, {401, 204}, {402, 299}, {403, 201}, {404, 203}, {405, 202}, {406, 299},
        {407, 105}, {408, 299}, {409, 206}, {410, 207}, {411, 299}, {417, 299}, {418, 302},
        {422, 299}, {429, 299}, {451, 299}, {499, 299}, {500, 401}, {501, 402}, {502, 499},
        {503, 403}, {504, 499}, {511, 499}, {599, 499}, {600, 499}, {999, 499},
    };
    for (const auto &[status, errorCode] : rows)
        QTest::addRow("%d", status) << status << errorCode;
}

void TestRestClientAnswers::statuses()
{
    QFETCH(int, status);
    QFETCH(int, errorCode);
    const bool hasBody = status != 204 && status != 304;
    LoopbackServer server;
    server.play({LoopbackServer::answer(status, hasBody ? "{\"a\":1}" : "",
                                        "Location: /elsewhere\r\nWWW-Authenticate: Basic\r\n")});
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);

    QCOMPARE(client.errorCode(), errorCode);
    QCOMPARE(client.statusCode(), status);
    QVERIFY(client.hasResponse());
    QVERIFY(!client.isNetworkError());
    QCOMPARE(client.errorText().isEmpty(), errorCode == 0);
    QCOMPARE(client.errorText().ru().contains(QString::number(status)), errorCode != 0);
    QCOMPARE(client.responseBody(), hasBody ? "{\"a\":1}" : "");
    const http::Response response = client.response();
    QCOMPARE(response.status, status);
    QCOMPARE(response.errorCode, errorCode);
    QCOMPARE(response.errorText, client.errorText());
    QVERIFY(!response.isNetworkError());
    QCOMPARE(response.responseObject().value(u"a").toInt(), hasBody ? 1 : 0);
    // The redirect was not followed, and there was no second attempt.
    QCOMPARE(server.requests().size(), 1);
}

void TestRestClientAnswers::networkFailures_data()
{
    QTest::addColumn<LoopbackServer::Reply>("reply");
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<int>("status");

    const auto raw = [](const QByteArray &bytes) {
        return LoopbackServer::raw(bytes);
    };
    const QByteArray chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const QByteArray gzip = zipped();
    constexpr int closedEarly = QNetworkReply::RemoteHostClosedError;
    constexpr int unknown = QNetworkReply::UnknownNetworkError;
    // clang-format off
    QTest::newRow("closed unanswered")       << raw("").closing()                                                    << closedEarly << 0;
    QTest::newRow("reset unanswered")        << raw("").resetting()                                                  << closedEarly << 0;
    QTest::newRow("closed in status line")   << raw("HTTP/1.1 20").closing()                                         << closedEarly << 0;
    QTest::newRow("closed in headers")       << raw("HTTP/1.1 200 OK\r\nX-A: b\r\n").closing()                       << closedEarly << 200;
    QTest::newRow("closed in the body")      << raw("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n1234").closing()    << closedEarly << 200;
    QTest::newRow("reset in the body")       << raw("HTTP/1.1 500 No\r\nContent-Length: 9\r\n\r\n1234").resetting()  << closedEarly << 500;
    QTest::newRow("closed in a chunk")       << raw(chunked + "9\r\n1234").closing()                                 << closedEarly << 200;
    QTest::newRow("no last chunk")           << raw(chunked + "4\r\n1234\r\n").closing()                             << closedEarly << 200;
    QTest::newRow("no chunks")               << raw(chunked + "this is no chunk\r\n")                                << unknown     << 200;
    QTest::newRow("continue, then closed")   << raw("HTTP/1.1 100 Continue\r\n\r\n").closing()                       << closedEarly << 0;
    QTest::newRow("garbage")                 << raw("\x16\x03\x01 garbage\r\n\r\n").closing()                        << unknown     << 0;
    QTest::newRow("garbage without an end")  << raw(QByteArray(300'000, 'g')).closing()                              << unknown     << 0;
    QTest::newRow("no status")               << raw("HTTP/1.1\r\n\r\n").closing()                                    << unknown     << 0;
    QTest::newRow("status of letters")       << raw("HTTP/1.1 abc OK\r\n\r\n").closing()                             << unknown     << 0;
    QTest::newRow("another protocol")        << raw("SSH-2.0-OpenSSH_9.2\r\n").closing()                             << unknown     << 0;
    QTest::newRow("gzip ends early")         << LoopbackServer::answer(200, gzip.chopped(1), "Content-Encoding: gzip\r\n") << closedEarly << 200;
    QTest::newRow("error ends early")        << LoopbackServer::answer(500, gzip.first(12), "Content-Encoding: gzip\r\n") << closedEarly << 500;
    QTest::newRow("deflate ends early")      << LoopbackServer::answer(200, deflated("abc").chopped(1), "Content-Encoding: deflate\r\n") << closedEarly << 200;
    // clang-format on
}

void TestRestClientAnswers::networkFailures()
{
    QFETCH(Reply, reply);
    LoopbackServer server;
    server.play({reply});
    RestClient client;
    client.setTimeout(5);
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);

    QTEST(client.errorCode(), "errorCode");
    QTEST(client.statusCode(), "status");
    QVERIFY(client.isNetworkError());
    QVERIFY(client.response().isNetworkError());
    QVERIFY(!client.hasResponse());
    QVERIFY(client.errorText().ru().contains(u"127.0.0.1:%1"_s.arg(server.port())));
    // Half an answer must not be read as one.
    QCOMPARE(client.responseBody(), QByteArray());
    QCOMPARE(server.requests().size(), 1);
}

void TestRestClientAnswers::refusedConnection()
{
    RestClient client;
    const QString host = u"127.0.0.1:%1"_s.arg(LoopbackServer::unusedPort());
    client.get(QUrl(u"http://%1/path"_s.arg(host)), {}, noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::ConnectionRefusedError});
    QCOMPARE(client.errorText().ru(), u"Сервер %1 отклонил соединение"_s.arg(host));
    QVERIFY(client.isNetworkError());
    QVERIFY(!client.hasResponse());
    QCOMPARE(client.statusCode(), 0);
}

void TestRestClientAnswers::timeouts_data()
{
    QTest::addColumn<LoopbackServer::Reply>("reply");
    QTest::addColumn<int>("status");
    const QByteArray head = "HTTP/1.1 200 OK\r\nX-A: b\r\nContent-Length: 100000\r\n\r\n";
    // clang-format off
    QTest::newRow("silent")             << LoopbackServer::silence()                                      << 0;
    QTest::newRow("stalled in headers") << LoopbackServer::raw("HTTP/1.1 200 OK\r\nX-A:")                  << 200;
    QTest::newRow("stalled in body")    << LoopbackServer::raw(head + "abc")                              << 200;
    QTest::newRow("dripping headers")   << LoopbackServer::raw("HTTP/1.1 200 OK\r\n" + QByteArray(100000, 'h')).drippingAfter(3) << 200;
    QTest::newRow("dripping body")      << LoopbackServer::raw(head + QByteArray(100000, 'b')).drippingAfter(head.size()) << 200;
    QTest::newRow("continues for ever") << LoopbackServer::raw("HTTP/1.1 100 Continue\r\n\r\n")           << 0;
    // clang-format on
}

void TestRestClientAnswers::timeouts()
{
    QFETCH(Reply, reply);
    LoopbackServer server;
    server.play({reply});
    RestClient client;
    client.setTimeoutMs(200);
    QElapsedTimer timer;
    timer.start();
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);

    QVERIFY(timer.elapsed() >= 190);
    QVERIFY(timer.elapsed() < 5000);
    QCOMPARE(client.errorCode(), int{QNetworkReply::TimeoutError});
    QCOMPARE(client.errorText().ru(),
             u"Сервер 127.0.0.1:%1 не ответил за 0.2 сек."_s.arg(server.port()));
    QTEST(client.statusCode(), "status");
    QVERIFY(client.isNetworkError());
    QVERIFY(!client.hasResponse());
}

void TestRestClientAnswers::resetsResultsAtEachExchange()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(500, "{\"a\":1}"), LoopbackServer::answer(200)});
    RestClient client;
    QCOMPARE(client.errorCode(), 0);
    QVERIFY(!client.hasResponse());
    QVERIFY(!client.isNetworkError());

    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 401);
    QCOMPARE(client.responseBody(), "{\"a\":1}");

    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(client.statusCode(), 200);
    QVERIFY(client.errorText().isEmpty());
    QVERIFY(client.hasResponse());
    QCOMPARE(client.responseBody(), "");

    client.get(QUrl(), {}, noHeaders);
    QCOMPARE(client.statusCode(), 0);
    QVERIFY(client.isNetworkError());
}

void TestRestClientAnswers::jsonReplies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariant>("variant");
    QTest::addColumn<QJsonObject>("object");
    const QJsonObject one{{u"a"_s, 1}};
    const QJsonObject longText{{u"a"_s, QString(4 * mebibyte - 8, u'x')}};
    const QByteArray longBody = QJsonDocument(longText).toJson(QJsonDocument::Compact);
    constexpr qsizetype maxValues = 2 * mebibyte - 1;
    const QByteArray most = '[' + QByteArray("1,").repeated(maxValues - 1) + "1]\n";
    const QVariantList mostValues(maxValues, QVariant(1));
    // clang-format off
    QTest::newRow("object")       << QByteArray("{\"a\": 1}")              << QVariant(one.toVariantMap())           << one;
    QTest::newRow("byte order")   << QByteArray("\xEF\xBB\xBF{\"a\": 1}")  << QVariant(one.toVariantMap())           << one;
    QTest::newRow("empty object") << QByteArray("{}")                      << QVariant(QVariantMap())                << QJsonObject();
    QTest::newRow("array")        << QByteArray("[\"x\"]")                 << QVariant(QVariantList{u"x"_s})         << QJsonObject();
    QTest::newRow("nothing")      << QByteArray()                          << QVariant()                             << QJsonObject();
    QTest::newRow("number")       << QByteArray("5")                       << QVariant()                             << QJsonObject();
    QTest::newRow("cut off")      << QByteArray("{\"a\": 1")               << QVariant()                             << QJsonObject();
    QTest::newRow("long text")    << longBody                              << QVariant(longText.toVariantMap())      << longText;
    QTest::newRow("longer text")  << longBody + ' '                        << QVariant()                             << QJsonObject();
    QTest::newRow("many values")  << most                                  << QVariant(mostValues)                   << QJsonObject();
    QTest::newRow("too many")     << most + '\n'                          << QVariant()                             << QJsonObject();
    QTest::newRow("XML")          << QByteArray("<a/>")                    << QVariant()                             << QJsonObject();
    // clang-format on
}

void TestRestClientAnswers::jsonReplies()
{
    QFETCH(QByteArray, body);
    QFETCH(QVariant, variant);
    const LogCapture log(u"http"_s);
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, body, "Content-Type: text/plain\r\n")});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(client.responseBody(), body);
    QCOMPARE(client.responseVariant(), variant);
    QCOMPARE(client.responseVariant().isValid(), variant.isValid());
    QCOMPARE(client.responseJson().isNull(), !variant.isValid());
    QTEST(client.response().responseObject(), "object");
    const bool isTooLarge = body.size() > 4 * mebibyte;
    QCOMPARE(client.response().isTooLarge(), isTooLarge);
    QCOMPARE(
        log.lines().contains(
            u"ERROR Ответ JSON не принят: размер 4194305 байт, допускается не более 4194304"_s),
        isTooLarge);
}

/// Qt does not read JSON with such deep nesting; the log distinguishes it from invalid JSON.
void TestRestClientAnswers::deepReplies()
{
    const LogCapture log(u"http"_s);
    constexpr int depth = 2000;
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, QByteArray("[").repeated(depth)
                                                 + QByteArray("]").repeated(depth))});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QVERIFY(client.responseJson().isNull());
    QCOMPARE(log.lines(),
             QStringList{u"ERROR Ответ JSON не принят: слишком глубокая вложенность"_s});
}

void TestRestClientAnswers::bodyLimit_data()
{
    QTest::addColumn<LoopbackServer::Reply>("reply");
    QTest::addColumn<int>("size");
    const QByteArray most(16 * mebibyte, 'x');
    const QByteArray close = "HTTP/1.1 200 OK\r\n\r\n";
    const QByteArray deflate = "Content-Encoding: deflate\r\n";
    // clang-format off
    QTest::newRow("16 MiB")               << LoopbackServer::answer(200, most)                            << 16 * mebibyte;
    QTest::newRow("one byte more")        << LoopbackServer::answer(200, most + 'x')                      << -1;
    QTest::newRow("without a length")     << LoopbackServer::raw(close + most + 'x').closing()            << -1;
    QTest::newRow("packed 16 MiB")        << LoopbackServer::answer(200, deflated(most), deflate)         << 16 * mebibyte;
    QTest::newRow("packed, a byte more")  << LoopbackServer::answer(200, deflated(most + 'x'), deflate)   << -1;
    QTest::newRow("bomb")                 << LoopbackServer::answer(200, deflated(QByteArray(256 * mebibyte, '\0')), deflate) << -1;
    // clang-format on
}

void TestRestClientAnswers::bodyLimit()
{
    QFETCH(Reply, reply);
    QFETCH(int, size);
    LoopbackServer server;
    server.play({reply});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.statusCode(), 200);
    if (size >= 0) {
        QCOMPARE(client.errorText().ru(), QString());
        QCOMPARE(client.responseBody().size(), size);
        return;
    }
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
    QVERIFY(client.isNetworkError());
    QVERIFY(client.errorText().ru().contains(u"больше 16 МиБ"));
    QCOMPARE(client.responseBody(), QByteArray());
}

void TestRestClientAnswers::unpacks_data()
{
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<QByteArray>("packed");
    const QByteArray text = "{\"text\":\"Чек\"}";
    const QByteArray zlib = deflated(text);
    const QByteArray both = deflated(zipped());
    // clang-format off
    QTest::newRow("deflate")             << QByteArray("Content-Encoding: deflate\r\n")       << zlib;
    QTest::newRow("bare deflate")        << QByteArray("Content-Encoding: deflate\r\n")       << zlib.mid(2, zlib.size() - 6);
    QTest::newRow("gzip")                << QByteArray("Content-Encoding: gzip\r\n")          << zipped();
    QTest::newRow("x-gzip, upper case")  << QByteArray("CONTENT-ENCODING:X-GZIP\r\n")         << zipped();
    QTest::newRow("identity")            << QByteArray("Content-Encoding: identity\r\n")      << text;
    QTest::newRow("two codings")         << QByteArray("Content-Encoding: gzip, deflate\r\n") << both;
    QTest::newRow("two lines")           << QByteArray("Content-Encoding: gzip\r\nContent-encoding: deflate\r\n") << both;
    QTest::newRow("no value")            << QByteArray("Content-Encoding:\r\n")               << text;
    QTest::newRow("of another name")     << QByteArray("X-Content-Encoding: gzip\r\nContent-Encodings: gzip\r\n") << text;
    // clang-format on
}

void TestRestClientAnswers::unpacks()
{
    QFETCH(QByteArray, headers);
    QFETCH(QByteArray, packed);
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, packed, headers), LoopbackServer::answer(200, "{}")});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorText().ru(), QString());
    QCOMPARE(client.responseJson().object().value(u"text").toString(), u"Чек"_s);
    // Nothing is carried over to the next answer.
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.responseBody(), "{}");
}

void TestRestClientAnswers::keepsWhatItCannotUnpack_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("body");
    const QByteArray text = "{\"text\":\"Чек\"}";
    for (const char *coding : {"gzip", "deflate", "gzip, gzip", "UTF-8", "windows-1251", "binary",
                               "zstd", "br", "gzip, br", "none", "secret"})
        QTest::newRow(coding) << QByteArray(coding) << text;
    QTest::newRow("gzip and another") << QByteArray("br, gzip") << zipped();
    QTest::newRow("broken gzip") << QByteArray("gzip") << zipped().replace(20, 1, "x");
}

/// Any answer counts: if it were a failure, a message that the server has accepted would be sent
/// again.
void TestRestClientAnswers::keepsWhatItCannotUnpack()
{
    QFETCH(QByteArray, coding);
    QFETCH(QByteArray, body);
    LoopbackServer server;
    for (const int status : {200, 201, 400, 500})
        server.play({LoopbackServer::answer(status, body, "Content-Encoding: " + coding + "\r\n")});
    for (const int status : {200, 201, 400, 500}) {
        RestClient client;
        client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
        QCOMPARE(client.statusCode(), status);
        QCOMPARE(client.errorCode() == 0, status < 300);
        QVERIFY(client.hasResponse());
        QVERIFY(!client.isNetworkError());
        QCOMPARE(client.responseBody(), body);
    }
}

void TestRestClientAnswers::packedAnswersWithoutABody()
{
    const QByteArray headers = "Content-Encoding: gzip\r\n";
    LoopbackServer server;
    server.play(
        {LoopbackServer::raw("HTTP/1.1 204 No Content\r\n" + headers + "\r\n"),
         LoopbackServer::raw("HTTP/1.1 200 OK\r\n" + headers + "Content-Length: 35\r\n\r\n"),
         LoopbackServer::answer(200, {}, headers)});
    for (const char *verb : {"POST", "HEAD", "POST"}) {
        RestClient client;
        client.send(params(verb, server.url(u"/"_s), "x"));
        QCOMPARE(client.errorText().ru(), QString());
        QCOMPARE(client.responseBody(), QByteArray());
    }
}

/// Only the headers before the body say how it is compressed.
void TestRestClientAnswers::codingsOutsideTheHead()
{
    const QByteArray coding = "Content-Encoding: gzip\r\n";
    const QByteArray body = zipped();
    const QByteArray size = QByteArray::number(body.size());
    LoopbackServer server;
    server.play({LoopbackServer::raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                     + QByteArray::number(body.size(), 16) + "\r\n" + body
                                     + "\r\n0\r\n" + coding + "\r\n"),
                 LoopbackServer::raw("HTTP/1.1 103 Early Hints\r\n" + coding
                                     + "\r\nHTTP/1.1 200 OK\r\nContent-Length: " + size + "\r\n\r\n"
                                     + body),
                 LoopbackServer::answer(200, body, "X-Long: a\r\n " + coding)});
    for (int count = 0; count < 3; ++count) {
        RestClient client;
        client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
        QCOMPARE(client.errorText().ru(), QString());
        QCOMPARE(client.responseBody(), body);
    }
}

void TestRestClientAnswers::largeHeaders_data()
{
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<QStringList>("texts");
    const auto many = [](int count, qsizetype size) {
        QByteArray headers;
        for (int index = 0; index < count; ++index)
            headers += "X-" + QByteArray::number(index) + ": " + QByteArray(size, 'y') + "\r\n";
        return headers;
    };
    const QString tooLong = u"Слишком длинный заголовок в ответе сервера %1"_s;
    const QString tooMuch = u"Заголовки ответа сервера %1 больше 256 КиБ"_s;
    // Newer libcurl takes no more than 5,000 lines.
    const QStringList either{tooMuch, tooLong};
    // clang-format off
    QTest::newRow("a thousand")         << many(1000, 1)        << QStringList();
    QTest::newRow("one of 64 KiB")      << many(1, 65'536)      << QStringList();
    QTest::newRow("290 of 1 KiB")       << many(290, 1024)      << QStringList{tooMuch};
    QTest::newRow("a hundred thousand") << many(100'000, 1)     << either;
    QTest::newRow("one of 4 MiB")       << many(1, 4 * mebibyte) << QStringList{tooLong};
    // clang-format on
}

void TestRestClientAnswers::largeHeaders()
{
    QFETCH(QByteArray, headers);
    QFETCH(QStringList, texts);
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, "ok", headers)});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    const bool isTaken = texts.isEmpty();
    const QString shown =
        client.errorText().ru().replace(u"127.0.0.1:%1"_s.arg(server.port()), u"%1"_s);
    QVERIFY2(isTaken ? shown.isEmpty() : texts.contains(shown), qPrintable(shown));
    QCOMPARE(client.isNetworkError(), !isTaken);
    QCOMPARE(client.errorCode(), isTaken ? 0 : int{QNetworkReply::UnknownNetworkError});
    QCOMPARE(client.responseBody(), isTaken ? "ok" : "");
    QCOMPARE(client.statusCode(), 200);
}

/// Lines after the last chunk, which are headers to HTTP.
void TestRestClientAnswers::longTrailer()
{
    LoopbackServer server;
    server.play({LoopbackServer::raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nX: "
                                     + QByteArray(mebibyte, 'x') + "\r\n\r\n")});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorText().ru(),
             u"Слишком длинный заголовок в ответе сервера 127.0.0.1:%1"_s.arg(server.port()));
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
}

QTEST_GUILESS_MAIN(TestRestClientAnswers)
#include "tst_restclientanswers.moc"
