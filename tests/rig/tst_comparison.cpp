#include "rig/comparison.h"
#include "rig/peerscript.h"

#include <QJsonArray>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace rig;

class TestComparison : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests();
    void longTextsShowWhereTheyPart();
};

namespace {

ArrivedRequest arrivedRequest()
{
    ArrivedRequest request;
    request.verb = u"POST"_s;
    request.target = u"/cards?till=7"_s;
    request.headers = {
        {u"Host"_s, u"127.0.0.1"_s}, {u"content-type"_s, u"text/plain"_s}, {u"X-Till"_s, u"7"_s}};
    request.body = R"({"a":1,"list":[1,2],"text":"abc"})";
    return request;
}

Exchange with(const QString &line, const std::optional<QMap<QString, QString>> &headers,
              const QJsonValue &body)
{
    Exchange exchange;
    exchange.request = line;
    exchange.headers = headers;
    exchange.body = body;
    return exchange;
}

} // namespace

void TestComparison::requests_data()
{
    QTest::addColumn<Exchange>("expected");
    QTest::addColumn<QStringList>("found");

    const QString line = u"POST /cards?till=7"_s;
    const QMap<QString, QString> headers{{u"Content-Type"_s, u"text/plain"_s},
                                         {u"X-Till"_s, u"{{digits}}"_s}};
    const QJsonValue nothing(QJsonValue::Undefined);
    const QJsonObject body{{u"a"_s, 1}, {u"list"_s, QJsonArray{1, 2}}, {u"text"_s, u"a{{any}}"_s}};
    QTest::newRow("what is left out is not compared") << with(line, {}, nothing) << QStringList();
    QTest::newRow("all equal") << with(line, headers, body) << QStringList();
    QTest::newRow("another verb") << with(
        u"PUT /cards?till=7"_s, {},
        nothing) << QStringList{u"request line\n  - PUT /cards?till=7\n  + POST /cards?till=7"_s};
    QTest::newRow("another query")
        << with(u"POST /cards"_s, {}, nothing)
        << QStringList{u"request line\n  - POST /cards\n  + POST /cards?till=7"_s};
    QTest::newRow("an unexpected header")
        << with(line, QMap<QString, QString>{{u"Content-Type"_s, u"text/plain"_s}}, nothing)
        << QStringList{u"header X-Till\n  - (none)\n  + 7"_s};
    QTest::newRow("a header too few, one with another value")
        << with(line,
                QMap<QString, QString>{{u"Content-Type"_s, u"text/html"_s},
                                       {u"X-Store"_s, u"1"_s},
                                       {u"X-Till"_s, u"7"_s}},
                nothing)
        << QStringList{u"header Content-Type\n  - text/html\n  + text/plain"_s,
                       u"header X-Store\n  - 1\n  + (not there)"_s};
    QTest::newRow("body as text, byte by byte")
        << with(line, {}, u"{}"_s)
        << QStringList{u"body\n  - {}\n  + {\"a\":1,\"list\":[1,2],\"text\":\"abc\"}"_s};
    QTest::newRow("body as JSON: one member, one entry, one too many")
        << with(line, {}, QJsonObject{{u"a"_s, 2}, {u"list"_s, QJsonArray{1, 2, 3}}})
        << QStringList{u"body.a\n  - 2\n  + 1"_s, u"body.list[2]\n  - 3\n  + nothing"_s,
                       u"body.text\n  - nothing\n  + \"abc\""_s};
    QTest::newRow("body as JSON: a number is not a text")
        << with(line, {},
                QJsonObject{{u"a"_s, u"1"_s}, {u"list"_s, QJsonArray{1, 2}}, {u"text"_s, u"abc"_s}})
        << QStringList{u"body.a\n  - \"1\"\n  + 1"_s};
}

void TestComparison::requests()
{
    QFETCH(Exchange, expected);
    QTEST(differences(expected, arrivedRequest()), "found");
}

void TestComparison::longTextsShowWhereTheyPart()
{
    ArrivedRequest arrived = arrivedRequest();
    arrived.body = QByteArray(1000, 'a') + 'b' + QByteArray(1000, 'c');
    const QStringList found =
        differences(with(u"POST /cards?till=7"_s, {}, QString(1500, u'a')), arrived);
    QCOMPARE(found.size(), 1);
    QVERIFY2(found.first().startsWith(
                 u"body, from character 960 (expected 1500 characters, arrived 2001)"_s),
             qPrintable(found.first()));
    QVERIFY(found.first().contains(u"+ …"_s + QString(40, u'a') + u"bccc"_s));
    QVERIFY(found.first().size() < 1000);
}

QTEST_GUILESS_MAIN(TestComparison)
#include "tst_comparison.moc"
