#include "rig/loopbackserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/restclientrequests.h"
#include "tests/support/testsettings.h"
#include "tests/support/vtable.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;

using Call = std::function<void(RestClient &, const QUrl &)>;
Q_DECLARE_METATYPE(Call)

namespace {

/// Gives access to the last operation of QObject.
class LastOfQObject : public QObject
{
public:
    static int slot() { return slotOf(&LastOfQObject::disconnectNotify); }
};

} // namespace

/// What goes out.
class TestRestClientRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void operations_data();
    void operations();
    void callersHeadersWin();
    void ownHeaders();
    void previousRequestLeavesNothing();
    void headersCannotBeInjected();
    void framingFollowsFromTheBody();
    void addresses_data();
    void addresses();
    void unusableAddresses();
    void unusableVerbs_data();
    void unusableVerbs();
    void multipart();
    void longRequestHead_data();
    void longRequestHead();
    void addressThatIsTooLong();
};

void TestRestClientRequests::operationsKeepTheirPlaces()
{
    using Client = RestClient;
    using Url = const QUrl &;
    using Headers = const RestClient::Headers &;
    const QList<int> places = {
        slotOf(&Client::request),
        slotOf(&Client::get),
        slotOf(&Client::send),
        slotOf(static_cast<void (Client::*)(Url, const QByteArray &, Headers)>(&Client::post)),
        slotOf(static_cast<void (Client::*)(Url, const QJsonDocument &, Headers)>(&Client::post)),
        slotOf(&Client::put),
        slotOf(&Client::errorCode),
        slotOf(&Client::statusCode),
        slotOf(&Client::errorText),
        slotOf(&Client::responseVariant),
        slotOf(&Client::responseJson),
        slotOf(&Client::responseBody),
        slotOf(&Client::setTimeout),
        slotOf(&Client::setTimeoutMs),
        slotOf(&Client::setCertificatePath),
        slotOf(&Client::setCertificatePassword),
        slotOf(&Client::setPrivateKeyPath),
        slotOf(&Client::hasResponse),
        slotOf(&Client::isNetworkError),
        slotOf(&Client::response),
        slotOf(&Client::setSecretHeaders),
    };
    QCOMPARE(places.size(), 21);
    for (int index = 0; index < places.size(); ++index)
        QCOMPARE(places.at(index), LastOfQObject::slot() + 1 + index);
    QCOMPARE(slotOf(&Client::setLogger), -1);
    QCOMPARE(slotOf(&Client::setCompactLogs), -1);
}

void TestRestClientRequests::operations_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("contentLength");

    const auto row = [](const char *name, const Call &call, const char *verb, const char *body,
                        const char *contentType, const char *contentLength) {
        QTest::newRow(name) << call << QByteArray(verb) << QByteArray(body)
                            << QByteArray(contentType) << QByteArray(contentLength);
    };
    using Client = RestClient;
    using Operation = QNetworkAccessManager;
    const QJsonDocument document = object(u"a"_s, 1);
    const auto request = [](int verb, const QJsonDocument &body) -> Call {
        return [=](Client &c, const QUrl &url) {
            c.request(verb, url, body, noHeaders);
        };
    };
    const auto send = [](const char *method, const char *body) -> Call {
        return [=](Client &c, const QUrl &url) {
            c.send(params(method, url, body));
        };
    };
    const char *const json = "application/json";

    // clang-format off
    row("HEAD by number",         request(Operation::HeadOperation, document),     "HEAD",   "",          "",   nullptr);
    row("GET by number",          request(Operation::GetOperation, {}),            "GET",    "",          "",   nullptr);
    row("GET has no body",        request(Operation::GetOperation, document),      "GET",    "",          "",   nullptr);
    row("PUT by number",          request(Operation::PutOperation, document),      "PUT",    "{\"a\":1}", json, "7");
    row("POST by number",         request(Operation::PostOperation, document),     "POST",   "{\"a\":1}", json, "7");
    row("POST empty by number",   request(Operation::PostOperation, {}),           "POST",   "",          "",   "0");
    row("DELETE by number",       request(Operation::DeleteOperation, {}),         "DELETE", "",          "",   nullptr);
    row("DELETE with a body",     request(Operation::DeleteOperation, document),   "DELETE", "{\"a\":1}", json, "7");
    row("get",                    [](Client &c, const QUrl &url) { c.get(url, {}, noHeaders); },                       "GET",  "",          "",   nullptr);
    row("get ignores a document", [](Client &c, const QUrl &url) { c.get(url, object(u"a"_s, 1), noHeaders); },        "GET",  "",          "",   nullptr);
    row("post bytes",             [](Client &c, const QUrl &url) { c.post(url, QByteArray("<a/>"), noHeaders); },      "POST", "<a/>",      "",   "4");
    row("post no bytes",          [](Client &c, const QUrl &url) { c.post(url, QByteArray(), noHeaders); },            "POST", "",          "",   "0");
    row("post JSON",              [](Client &c, const QUrl &url) { c.post(url, object(u"a"_s, 1), noHeaders); },       "POST", "{\"a\":1}", json, "7");
    row("post an empty object",   [](Client &c, const QUrl &url) { c.post(url, QJsonDocument(QJsonObject()), noHeaders); }, "POST", "{}",   json, "2");
    row("post an empty document", [](Client &c, const QUrl &url) { c.post(url, QJsonDocument(), noHeaders); },         "POST", "",          "",   "0");
    row("put bytes",              [](Client &c, const QUrl &url) { c.put(url, "abc", noHeaders); },                    "PUT",  "abc",       "",   "3");
    row("put no bytes",           [](Client &c, const QUrl &url) { c.put(url, {}, noHeaders); },                       "PUT",  "",          "",   "0");
    row("send PATCH",             send("PATCH", "{}"),                             "PATCH",  "{}",        "",   "2");
    row("send DELETE",            send("DELETE", ""),                              "DELETE", "",          "",   nullptr);
    row("send GET with a body",   send("GET", "q"),                                "GET",    "q",         "",   "1");
    row("send HEAD",              send("HEAD", "q"),                               "HEAD",   "",          "",   nullptr);
    row("send OPTIONS",           send("OPTIONS", ""),                             "OPTIONS", "",         "",   nullptr);
    row("send lower case",        send("put", "q"),                                "put",    "q",         "",   "1");
    row("send: body, no verb",    send("", "q"),                                   "POST",   "q",         "",   "1");
    row("send: nothing",          send("", ""),                                    "GET",    "",          "",   nullptr);
    // clang-format on
}

void TestRestClientRequests::operations()
{
    QFETCH(Call, call);
    LoopbackServer server;
    RestClient client;
    call(client, server.url(u"/path?a=b"_s));

    QCOMPARE(client.errorText().ru(), QString());
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.requests().size(), 1);
    const auto request = server.requests().constFirst();
    QTEST(request.verb, "verb");
    QCOMPARE(request.path, "/path");
    QCOMPARE(request.query, "a=b");
    QTEST(request.body, "body");
    QTEST(request.header("Content-Type"), "contentType");
    QTEST(request.header("Content-Length"), "contentLength");
    QVERIFY(request.headerValues("Expect").isEmpty());
    QVERIFY(request.headerValues("Transfer-Encoding").isEmpty());
}

void TestRestClientRequests::callersHeadersWin()
{
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/"_s), object(u"a"_s, 1),
                {{u"content-type"_s, u"application/vnd.till+json"_s},
                 {u"User-Agent"_s, u"till"_s},
                 {u"Accept"_s, u"text/xml"_s},
                 {u"Accept-Encoding"_s, u"identity"_s},
                 {u"Host"_s, u"service.example"_s},
                 {u"X-Empty"_s, u""_s},
                 {u"X-Name"_s, u"Касса"_s}});
    QCOMPARE(client.errorCode(), 0);
    const auto request = server.requests().constFirst();
    const auto only = [](const char *value) {
        return QList<QByteArray>{value};
    };
    QCOMPARE(request.headerValues("Content-Type"), only("application/vnd.till+json"));
    QCOMPARE(request.headerValues("User-Agent"), only("till"));
    QCOMPARE(request.headerValues("Accept"), only("text/xml"));
    QCOMPARE(request.headerValues("Accept-Encoding"), only("identity"));
    QCOMPARE(request.headerValues("Host"), only("service.example"));
    QCOMPARE(request.headerValues("X-Empty"), only(""));
    QCOMPARE(request.headerValues("X-Name"), only("Касса"));
}

void TestRestClientRequests::ownHeaders()
{
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray(3 * mebibyte, 'x'), noHeaders);
    const auto request = server.requests().constFirst();
    QCOMPARE(request.header("User-Agent"), "queue/" QUEUE_VERSION);
    // An uncompressed answer cannot be decompressed wrongly.
    QVERIFY(request.headerValues("Accept-Encoding").isEmpty());
    QCOMPARE(request.body.size(), 3 * mebibyte);
    QVERIFY(request.headerValues("Expect").isEmpty());
}

/// A worker keeps the settings of the previous request.
void TestRestClientRequests::previousRequestLeavesNothing()
{
    struct Sent
    {
        QString user;
        QString path;
        RestClient::Headers headers;
    };
    const Sent plain = {{}, u"/a?x=1"_s, {{u"X-Shop"_s, u"1"_s}}};
    const Sent named = {u"till:key"_s, u"/b"_s, {{u"X-Shop"_s, u"2"_s}, {u"User-Agent"_s, u"t"_s}}};
    const Sent bare = {{}, u"/b"_s, noHeaders};
    const Sent sameNames = {{}, u"/b"_s, {{u"X-Shop"_s, u"1"_s}, {u"User-Agent"_s, u"t"_s}}};
    const QList<Sent> all = {plain, named, bare, sameNames, named, plain, plain, bare};

    LoopbackServer server;
    for (const Sent &sent : all) {
        QUrl url = server.url(sent.path);
        url.setUserInfo(sent.user);
        RestClient().post(url, QByteArray("x"), sent.headers);
    }
    QCOMPARE(server.requests().size(), all.size());
    for (qsizetype i = 0; i < all.size(); ++i) {
        const auto request = server.requests().at(i);
        const Sent &sent = all.at(i);
        QCOMPARE(request.target, sent.path.toUtf8());
        QCOMPARE(request.header("X-Shop"), sent.headers.value(u"X-Shop"_s).toUtf8());
        QCOMPARE(
            request.header("User-Agent"),
            sent.headers.value(u"User-Agent"_s, QStringLiteral("queue/" QUEUE_VERSION)).toUtf8());
        QCOMPARE(request.header("Authorization"),
                 sent.user.isEmpty() ? QByteArray() : "Basic " + sent.user.toUtf8().toBase64());
    }
    QCOMPARE(server.connectionCount(), 1);
}

void TestRestClientRequests::headersCannotBeInjected()
{
    LoopbackServer server;
    RestClient client;
    client.post(server.url(u"/"_s), QByteArray("x"),
                {{u"X-Token"_s, u" abc\r\nX-Injected: 1\n"_s},
                 {u"X-Bad\r\nX-Injected"_s, u"1"_s},
                 {u"X Bad"_s, u"1"_s},
                 {u""_s, u"1"_s}});
    QCOMPARE(client.errorCode(), 0);
    const auto request = server.requests().constFirst();
    QCOMPARE(request.header("X-Token"), "abc  X-Injected: 1");
    for (const auto &[name, value] : request.headers)
        QVERIFY2(!name.contains("Injected") && !name.contains("Bad") && !name.isEmpty(), name);
}

void TestRestClientRequests::framingFollowsFromTheBody()
{
    LoopbackServer server;
    RestClient client;
    client.put(server.url(u"/"_s), "12345",
               {{u"content-length"_s, u"3"_s},
                {u"Transfer-Encoding"_s, u"chunked"_s},
                {u"Expect"_s, u"100-continue"_s}});
    QCOMPARE(client.errorCode(), 0);
    const auto request = server.requests().constFirst();
    QCOMPARE(request.body, "12345");
    QCOMPARE(request.headerValues("Content-Length"), QList<QByteArray>{"5"});
    QVERIFY(request.headerValues("Transfer-Encoding").isEmpty());
    QVERIFY(request.headerValues("Expect").isEmpty());
}

void TestRestClientRequests::addresses_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QByteArray>("target");
    // The server plays a proxy, so the request line shows the whole address.
    // clang-format off
    QTest::newRow("no path")          << u"http://service.test"_s                   << QByteArray("http://service.test/");
    QTest::newRow("query only")       << u"http://service.test?a=1"_s               << QByteArray("http://service.test/?a=1");
    QTest::newRow("fragment")         << u"http://service.test/a#part"_s            << QByteArray("http://service.test/a");
    QTest::newRow("Cyrillic path")    << u"http://service.test/чек"_s               << QByteArray("http://service.test/%D1%87%D0%B5%D0%BA");
    QTest::newRow("Cyrillic query")   << u"http://service.test/?имя=Иван Ы"_s       << QByteArray("http://service.test/?%D0%B8%D0%BC%D1%8F=%D0%98%D0%B2%D0%B0%D0%BD%20%D0%AB");
    QTest::newRow("Cyrillic host")    << u"http://касса.рф/"_s                      << QByteArray("http://xn--80aa2a3aa.xn--p1ai/");
    QTest::newRow("encoded already")  << u"http://service.test/a%2Fb?c=%26%20"_s    << QByteArray("http://service.test/a%2Fb?c=%26%20");
    QTest::newRow("plus stays")       << u"http://service.test/?c=a+b"_s            << QByteArray("http://service.test/?c=a+b");
    QTest::newRow("dots stay")        << u"http://service.test/a/../b/./c"_s        << QByteArray("http://service.test/a/../b/./c");
    QTest::newRow("slashes stay")     << u"http://service.test//a//b"_s             << QByteArray("http://service.test//a//b");
    QTest::newRow("port")             << u"http://service.test:8080/"_s             << QByteArray("http://service.test:8080/");
    QTest::newRow("upper case")       << u"HTTP://Service.Test/A"_s                 << QByteArray("http://service.test/A");
    QTest::newRow("brackets, braces") << u"http://service.test/?a[]={1|2}^"_s       << QByteArray("http://service.test/?a[]=%7B1%7C2%7D%5E");
    // clang-format on
}

void TestRestClientRequests::addresses()
{
    QFETCH(QString, address);
    LoopbackServer proxy;
    const TestSettings settings(u"[network]\nproxy = http://127.0.0.1:%1\n"_s.arg(proxy.port()));
    RestClient client;
    client.get(QUrl(address), {}, noHeaders);
    QCOMPARE(client.errorText().ru(), QString());
    QTEST(proxy.requests().constFirst().target, "target");
}

void TestRestClientRequests::unusableAddresses()
{
    const QString port = u"порт должен быть числом от 1 до 65535"_s;
    struct Row
    {
        QUrl url;
        QString text;
    };
    const Row rows[] = {
        {QUrl(), u"Не указан адрес запроса"_s},
        {QUrl(u"http://127.0.0.1:99999/a"_s),
         u"Недопустимый адрес запроса 'http://127.0.0.1:99999/a': %1"_s.arg(port)},
        {QUrl(u"ftp://127.0.0.1/file"_s),
         u"Недопустимый адрес запроса 'ftp://127.0.0.1/file': адрес должен начинаться с http:// или "
         "https://"_s},
    };
    for (const auto &[url, text] : rows) {
        RestClient client;
        client.post(url, QByteArray("x"), noHeaders);
        QCOMPARE(client.errorCode(), int{QNetworkReply::ProtocolUnknownError});
        QCOMPARE(client.errorText().ru(), text);
        QVERIFY(client.isNetworkError());
        QVERIFY(!client.hasResponse());
        QCOMPARE(client.statusCode(), 0);
    }
}

void TestRestClientRequests::unusableVerbs_data()
{
    QTest::addColumn<Call>("call");
    const auto request = [](int verb) -> Call {
        return [verb](RestClient &c, const QUrl &url) {
            c.request(verb, url, {}, noHeaders);
        };
    };
    const auto send = [](const QByteArray &verb) -> Call {
        return [verb](RestClient &c, const QUrl &url) {
            c.send(params(verb, url));
        };
    };
    QTest::newRow("number 0") << request(0);
    QTest::newRow("custom by number") << request(QNetworkAccessManager::CustomOperation);
    QTest::newRow("negative") << request(-1);
    QTest::newRow("far off") << request(1000);
    QTest::newRow("with a space") << send("GET /elsewhere");
    QTest::newRow("with a line") << send("GET / HTTP/1.1\r\nX: y\r\n\r\nPOST");
    QTest::newRow("Cyrillic") << send("ПОСТ");
}

void TestRestClientRequests::unusableVerbs()
{
    QFETCH(Call, call);
    LoopbackServer server;
    RestClient client;
    call(client, server.url(u"/"_s));
    QCOMPARE(client.errorCode(), int{QNetworkReply::ProtocolUnknownError});
    QVERIFY(client.isNetworkError());
    QVERIFY(client.errorText().ru().contains(u"метод"));
    QCOMPARE(server.connectionCount(), 0);
}

void TestRestClientRequests::multipart()
{
    LoopbackServer server;
    http::Part text;
    text.name = "note";
    text.body = QByteArray("Чек\0 1", 9);
    http::Part file;
    file.name = "file";
    file.fileName = "чек \"1\".xml";
    file.contentType = "text/xml\r\nX-Injected: 1";
    file.headers = {{"X-Part", "a\r\nX-Injected: 2"}};
    file.body = "<a/>";
    http::Params request = params("", server.url(u"/"_s), "not sent");
    request.headers = {{"Content-Type", "application/json"}, {"X-Till", "5"}};
    request.parts = {text, file};

    RestClient client;
    client.send(request);
    QCOMPARE(client.errorText().ru(), QString());
    const auto received = server.requests().constFirst();
    QCOMPARE(received.verb, "POST");
    QCOMPARE(received.header("X-Till"), "5");
    const QByteArray type = received.header("Content-Type");
    const QByteArray start = "multipart/form-data; boundary=";
    QVERIFY2(type.startsWith(start), type);
    QCOMPARE(received.headerValues("Content-Type").size(), 1);
    const QByteArray boundary = type.mid(start.size());
    QCOMPARE(received.body,
             "--" + boundary + "\r\nContent-Disposition: form-data; name=\"note\"\r\n\r\n"
                 + text.body + "\r\n--" + boundary
                 + "\r\nContent-Disposition: form-data; name=\"file\"; "
                   "filename=\"чек %221%22.xml\"\r\n"
                   "Content-Type: text/xml  X-Injected: 1\r\nX-Part: a  X-Injected: 2\r\n\r\n<a/>"
                   "\r\n--"
                 + boundary + "--\r\n");

    request.method = "PUT";
    client.send(request);
    QCOMPARE(server.requests().at(1).verb, "PUT");
    QCOMPARE(server.requests().at(1).body.size(), received.body.size());
}

void TestRestClientRequests::longRequestHead_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("header");
    const QString large(2 * mebibyte, u'x');
    QTest::newRow("header") << u"/"_s << large;
    QTest::newRow("address") << u"/"_s + large << u"x"_s;
}

void TestRestClientRequests::longRequestHead()
{
    QFETCH(QString, path);
    QFETCH(QString, header);
    LoopbackServer server;
    RestClient client;
    client.post(server.url(path), QByteArray("x"), {{u"X-Long"_s, header}});
    QCOMPARE(client.errorText().ru(),
             u"Слишком длинный адрес или заголовок в запросе к серверу 127.0.0.1:%1"_s.arg(
                 server.port()));
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
    QCOMPARE(server.received(), QByteArray());
}

/// libcurl refuses longer addresses than Qt does. The request must not go to the former address.
void TestRestClientRequests::addressThatIsTooLong()
{
    LoopbackServer server;
    RestClient client;
    client.get(server.url(u"/first"_s), {}, noHeaders);
    client.get(server.url(u'/' + QString(8'000'001, u'x')), {}, noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::UnknownNetworkError});
    QVERIFY(client.isNetworkError());
    QVERIFY(!client.hasResponse());
    client.get(server.url(u"/last"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
    QCOMPARE(server.requests().size(), 2);
    QCOMPARE(server.requests().constLast().target, "/last");
    QCOMPARE(server.requests().constLast().path, "/last");
}

QTEST_GUILESS_MAIN(TestRestClientRequests)
#include "tst_restclientrequests.moc"
