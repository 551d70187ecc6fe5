#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Headers = QMap<QString, QString>;

const QString address = uR"("url":"http://till.test/путь?a=1")"_s;
const QByteArray request = "http://till.test/%D0%BF%D1%83%D1%82%D1%8C?a=1";
const QString headers = uR"("headers":{"X-Key":"k","Number":5})"_s;
const Headers sentHeaders = {{u"Number"_s, u"5"_s}, {u"X-Key"_s, u"k"_s}};
const Headers jsonType = {{u"Content-Type"_s, u"application/json; charset=UTF-8"_s}};
const QString plain = u"INFO Отправка сообщения"_s;
const QString withId = u"INFO Отправка сообщения 7"_s;

QString message(const QString &rest)
{
    return u"{"_s + address + u","_s + headers + (rest.isEmpty() ? u""_s : u","_s) + rest + u"}"_s;
}

} // namespace

/// The fourteen types that deliver a request as the till prepared it.
class TestForwarding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void outcome_data();
    void outcome();
    void absentAddressKeepsTheMessage_data();
    void absentAddressKeepsTheMessage();
    void eachMessageHasItsAddress();
};

void TestForwarding::request_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<Headers>("sentWith");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<QString>("opening");

    constexpr int unset = -1;
    const auto row = [](const char *name, const QString &type, const QString &rest,
                        const QByteArray &verb, const QByteArray &sent, const Headers &sentWith,
                        int timeout, const QString &opening) {
        QTest::addRow("%s: %s", qPrintable(type), name)
            << type << message(rest) << verb << sent << sentWith << timeout << opening;
    };
    const QString bytes = uR"("body":"<к %1/>","timeout":7)"_s;
    const QString object = uR"("body":{"b":[1,2.5],"a":"ж"},"timeout":7)"_s;
    const QString array = uR"("body":[{"a":1},2],"timeout":7)"_s;

    // clang-format off
    row("as prepared",          u"abmloyalty"_s,      bytes,  "POST",  "<к %1/>", sentHeaders, 7, plain);
    row("PUT",                  u"abmloyalty"_s,      bytes + uR"(,"method":"PUT")"_s, "PUT", "<к %1/>", sentHeaders, 7, plain);
    row("put is not PUT",       u"abmloyalty"_s,      bytes + uR"(,"method":"put")"_s, "POST", "<к %1/>", sentHeaders, 7, plain);
    row("no timeout",           u"abmloyalty"_s,      u"\"body\":\"x\""_s, "POST", "x", sentHeaders, 0, plain);
    row("timeout no number",    u"abmloyalty"_s,      u"\"timeout\":\"abc\""_s, "POST", "", sentHeaders, 0, plain);
    row("timeout as text",      u"abmloyalty"_s,      u"\"timeout\":\"12\""_s, "POST", "", sentHeaders, 12, plain);
    row("object for bytes",     u"abmloyalty"_s,      object, "POST",  "", sentHeaders, 7, plain);
    row("number for bytes",     u"abmloyalty"_s,      u"\"body\":12"_s, "POST", "12", sentHeaders, 0, plain);
    row("own headers and time", u"cardlab"_s,         bytes,  "PUT",   "<к %1/>", jsonType, 10, plain);
    row("own headers and time", u"waybillnumber"_s,   bytes,  "PUT",   "<к %1/>", jsonType, 10, withId);
    row("as prepared",          u"heineken"_s,        bytes,  "POST",  "<к %1/>", sentHeaders, 7, withId);
    row("no timeout",           u"heineken"_s,        u""_s,  "POST",  "", sentHeaders, 0, withId);
    row("method is not read",   u"heineken"_s,        bytes + uR"(,"method":"PUT")"_s, "POST", "<к %1/>", sentHeaders, 7, withId);
    row("timeout is not read",  u"smartscales"_s,     bytes,  "POST",  "<к %1/>", sentHeaders, unset, withId);
    row("no content",           u"estesis"_s,         bytes,  "POST",  "", sentHeaders, unset, withId);
    row("as prepared",          u"customeraddress"_s, object, "POST",  R"({"a":"ж","b":[1,2.5]})", sentHeaders, 7, plain);
    row("text for an object",   u"customeraddress"_s, bytes,  "POST",  "{}", sentHeaders, 7, plain);
    row("no body",              u"customeraddress"_s, u""_s,  "POST",  "{}", sentHeaders, 0, plain);
    row("as prepared",          u"winelabbonus"_s,    object, "POST",  R"({"a":"ж","b":[1,2.5]})", sentHeaders, 7, withId);
    row("no body",              u"winelabbonus"_s,    u""_s,  "POST",  "{}", sentHeaders, 0, withId);
    row("as prepared",          u"nochange"_s,        object, "POST",  R"({"a":"ж","b":[1,2.5]})", sentHeaders, 7, QString());
    row("no body",              u"nochange"_s,        u""_s,  "POST",  "{}", sentHeaders, 0, QString());
    row("as prepared",          u"softcheck"_s,       array,  "POST",  R"([{"a":1},2])", sentHeaders, 7, withId);
    row("no timeout",           u"softcheck"_s,       u"\"body\":[]"_s, "POST", "[]", sentHeaders, 10, withId);
    row("timeout no number",    u"softcheck"_s,       u"\"timeout\":\"abc\""_s, "POST", "[]", sentHeaders, 0, withId);
    row("object for an array",  u"softcheck"_s,       object, "POST",  "[]", sentHeaders, 7, withId);
    row("as prepared",          u"winelabsoftcheque"_s, object, "PATCH", R"({"a":"ж","b":[1,2.5]})", sentHeaders, 7, withId);
    row("no body",              u"winelabsoftcheque"_s, u""_s, "PATCH", "{}", sentHeaders, 0, withId);
    // clang-format on
}

void TestForwarding::request()
{
    QFETCH(QString, type);
    QFETCH(QString, body);
    QFETCH(QByteArray, verb);
    QFETCH(QByteArray, sent);
    QFETCH(Headers, sentWith);
    QFETCH(int, timeout);
    QFETCH(QString, opening);

    const LogCapture log(type);
    FakeRestClient net({reply(200, "whatever")});
    QVERIFY(deliver(type, body));

    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(made.verb, verb);
    QCOMPARE(made.url.toEncoded(), ::request);
    QCOMPARE(made.body, sent);
    QCOMPARE(made.headers, sentWith);
    if (timeout < 0)
        QVERIFY(!made.timeoutMs);
    else
        QCOMPARE(made.timeoutMs.value_or(-1), qint64{timeout} * 1000);
    QVERIFY(made.logger);
    QCOMPARE(log.lines(), opening.isEmpty() ? QStringList() : QStringList{opening});
}

void TestForwarding::outcome_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("line");

    struct Answer
    {
        const char *name;
        http::Response response;
    };
    const Answer answers[] = {
        {"200", reply(200, "{\"error\":1}")},
        {"204", reply(204)},
        {"301", reply(301)},
        {"400", reply(400)},
        {"404", reply(404)},
        {"500", reply(500)},
        {"no connection", noConnection()},
        {"no answer in time", timeout()},
    };
    const QStringList model = {u"abmloyalty"_s,      u"cardlab"_s,      u"waybillnumber"_s,
                               u"heineken"_s,        u"smartscales"_s,  u"estesis"_s,
                               u"customeraddress"_s, u"winelabbonus"_s, u"winelabsoftcheque"_s};
    const auto add = [](const QString &type, const Answer &answer, bool finished,
                        const QString &line) {
        QTest::addRow("%s: %s", qPrintable(type), answer.name)
            << type << answer.response << finished << line;
    };
    for (const Answer &answer : answers) {
        const bool isClean = answer.response.errorCode == 0;
        const QString text = answer.response.errorText.ru();
        for (const QString &type : model)
            add(type, answer, isClean,
                isClean ? QString() : u"ERROR Ошибка при отправке сообщения: "_s + text);
        add(u"nochange"_s, answer, isClean,
            isClean ? QString() : u"INFO Ошибка при отправке запроса: "_s + text);
        // A fiscal slip that the service refuses is not sent again.
        add(u"softcheck"_s, answer, !answer.response.isNetworkError(), QString());
    }
}

void TestForwarding::outcome()
{
    QFETCH(QString, type);
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QString, line);

    const LogCapture log(type);
    FakeRestClient net({answer});
    QCOMPARE(deliver(type, message(QString())), finished);
    const QStringList failures = log.lines().filter(u"Ошибка"_s);
    QCOMPARE(failures, line.isEmpty() ? QStringList() : QStringList{line});
}

void TestForwarding::absentAddressKeepsTheMessage_data()
{
    QTest::addColumn<QString>("type");
    for (const char *type : {"abmloyalty", "cardlab", "waybillnumber", "heineken", "smartscales",
                             "estesis", "customeraddress", "winelabbonus", "nochange", "softcheck",
                             "winelabsoftcheque", "winelabcertificate", "greenwichparkingticket"})
        QTest::newRow(type) << QString::fromLatin1(type);
}

void TestForwarding::absentAddressKeepsTheMessage()
{
    QFETCH(QString, type);
    // The real client: the address is empty, so nothing goes out.
    QVERIFY(!deliver(type, u"{}"_s));
}

void TestForwarding::eachMessageHasItsAddress()
{
    FakeRestClient net({reply(200), reply(200), reply(200), reply(200)});
    const QStringList paths{u"a"_s, u"b"_s, u"b"_s, u"a"_s};
    for (const QString &path : paths) {
        const QString body = uR"({"url":"http://till.test/%1"})"_s.arg(path);
        QVERIFY(deliver(u"heineken"_s, body));
        QCOMPARE(net.lastRequest().url, QUrl(u"http://till.test/"_s + path));
    }
}

QTEST_GUILESS_MAIN(TestForwarding)
#include "tst_forwarding.moc"
