#include "shared/net/httpparams.h"
#include "shared/net/serder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QUrlQuery>

#include <functional>

using namespace Qt::StringLiterals;

using Bytes = QMap<QByteArray, QByteArray>;

namespace {

/// `text` as a row's body reaches a handler.
QVariant parsed(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("%s: %s", text.constData(), qPrintable(error.errorString()));
    return document.toVariant();
}

} // namespace

/// Types that http::Params does not use.
struct Record
{
    Q_GADGET
    Q_PROPERTY(int number MEMBER number)
    Q_PROPERTY(bool flag MEMBER flag)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(QStringList texts MEMBER texts)
    Q_PROPERTY(QVariantMap map MEMBER map)
    Q_PROPERTY(QVariant any MEMBER any)
    Q_PROPERTY(http::Part part MEMBER part)
    Q_PROPERTY(QMap<QString, int> numbers MEMBER numbers)
    Q_PROPERTY(int setOnly WRITE setSetOnly READ getSetOnly)
    Q_PROPERTY(int readOnly READ getReadOnly)

public:
    void setSetOnly(int value) { set = value * 2; }
    int getSetOnly() const { return set; }
    int getReadOnly() const { return 7; }

    int number = -1;
    bool flag = false;
    QString text = u"before"_s;
    QStringList texts;
    QVariantMap map;
    QVariant any;
    http::Part part;
    QMap<QString, int> numbers;
    int set = 0;
};

class TestSerder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void propertiesAreTheKeys();
    void wholeRequest();
    void bodies_data();
    void bodies();
    void headers_data();
    void headers();
    void parts_data();
    void parts();
    void valuesThatDoNotConvert();
    void sources_data();
    void sources();
    void otherTypes();
    void keepsMembersAbsentInTheSource();
    void verbOfARequest();
    void requestsDifferInEachMember();
    void listsOfAProgram();
    void oneStrategyForAType();
};

void TestSerder::propertiesAreTheKeys()
{
    const auto names = [](const QMetaObject &metaObject) {
        QStringList result;
        for (int index = 0; index < metaObject.propertyCount(); ++index)
            result.append(QString::fromLatin1(metaObject.property(index).name()));
        return result.join(u' ');
    };
    QCOMPARE(names(http::Params::staticMetaObject), u"method url body headers parts"_s);
    QCOMPARE(names(http::Part::staticMetaObject), u"name fileName contentType headers body"_s);
}

void TestSerder::wholeRequest()
{
    const auto params = serder::deserialize<http::Params>(parsed(R"({
        "method": "PATCH",
        "url": "https://host.test/путь?a=b c",
        "body": "{\"a\": 1}",
        "headers": {"X-Api-Key": "Ключ", "X-Number": 5, "X-Flag": true},
        "timeout": 10,
        "Method": "GET",
        "parts": [
            {"name": "note", "body": "text", "unknown": 1},
            {"name": "file", "fileName": "a.xml", "contentType": "text/xml",
             "headers": {"X-Part": 2}, "body": {"b": [1, 2]}}
        ]})"));

    http::Params expected;
    expected.method = "PATCH";
    expected.url = QUrl(u"https://host.test/путь?a=b c"_s);
    expected.body = "{\"a\": 1}";
    expected.headers = {{"X-Api-Key", "Ключ"}, {"X-Number", "5"}, {"X-Flag", "true"}};
    http::Part note;
    note.name = "note";
    note.body = "text";
    http::Part file;
    file.name = "file";
    file.fileName = "a.xml";
    file.contentType = "text/xml";
    file.headers = {{"X-Part", "2"}};
    file.body = "{\"b\":[1,2]}";
    expected.parts = {note, file};

    QCOMPARE(params.method, expected.method);
    QCOMPARE(params.url, expected.url);
    QVERIFY(params.url.isValid());
    QCOMPARE(params.body, expected.body);
    QCOMPARE(params.headers, expected.headers);
    QCOMPARE(params.parts.size(), 2);
    QVERIFY(params == expected);
}

void TestSerder::bodies_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *name, const char *message, const char *body) {
        QTest::newRow(name) << QByteArray(message) << QByteArray(body);
    };
    // clang-format off
    row("text",         R"({"body": "Чек 1"})",                     "Чек 1");
    row("empty text",   R"({"body": ""})",                          "");
    row("object",       R"({"body": {"б": "в", "a": {"c": null}}})", R"({"a":{"c":null},"б":"в"})");
    row("empty object", R"({"body": {}})",                          "{}");
    row("array",        R"({"body": [1, "x", true, 1.5]})",         R"([1,"x",true,1.5])");
    row("empty array",  R"({"body": []})",                          "[]");
    row("number",       R"({"body": 12})",                          "12");
    row("null",         R"({"body": null})",                        "");
    row("absent",       R"({"url": "http://host.test"})",           "");
    // clang-format on
}

void TestSerder::bodies()
{
    QFETCH(QByteArray, message);
    QTEST(serder::deserialize<http::Params>(parsed(message)).body, "body");
}

void TestSerder::headers_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<Bytes>("headers");
    // clang-format off
    QTest::newRow("none")        << QByteArray(R"({"headers": {}})")                        << Bytes();
    QTest::newRow("texts")       << QByteArray(R"({"headers": {"A": "b", "a": "c"}})")      << Bytes{{"A", "b"}, {"a", "c"}};
    QTest::newRow("null")        << QByteArray(R"({"headers": {"A": null}})")               << Bytes{{"A", ""}};
    QTest::newRow("object")      << QByteArray(R"({"headers": {"A": {"b": 1}}})")           << Bytes{{"A", "{\"b\":1}"}};
    QTest::newRow("a text")      << QByteArray(R"({"headers": "A: b"})")                    << Bytes();
    QTest::newRow("an array")    << QByteArray(R"({"headers": ["A", "b"]})")                << Bytes();
    // clang-format on
}

void TestSerder::headers()
{
    QFETCH(QByteArray, message);
    QTEST(serder::deserialize<http::Params>(parsed(message)).headers, "headers");
}

void TestSerder::parts_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QList<QByteArray>>("names");
    // clang-format off
    QTest::newRow("none")              << QByteArray(R"({"parts": []})")                              << QList<QByteArray>();
    QTest::newRow("one")               << QByteArray(R"({"parts": [{"name": "a"}]})")                 << QList<QByteArray>{"a"};
    QTest::newRow("no maps among")     << QByteArray(R"({"parts": [{"name": "a"}, 5, {}]})")          << QList<QByteArray>{"a", "", ""};
    QTest::newRow("an object")         << QByteArray(R"({"parts": {"name": "a"}})")                   << QList<QByteArray>();
    QTest::newRow("a text")            << QByteArray(R"({"parts": "a"})")                             << QList<QByteArray>();
    // clang-format on
}

void TestSerder::parts()
{
    QFETCH(QByteArray, message);
    QList<QByteArray> names;
    const auto params = serder::deserialize<http::Params>(parsed(message));
    for (const http::Part &part : params.parts)
        names.append(part.name);
    QTEST(names, "names");
}

void TestSerder::valuesThatDoNotConvert()
{
    http::Params params;
    params.method = "PUT";
    params.url = QUrl(u"http://host.test/"_s);
    params.headers = {{"A", "b"}};
    params.parts = {http::Part()};
    const auto strategy = serder::details::Strategy::create(&http::Params::staticMetaObject);
    strategy->deserialize(&params,
                          parsed(R"({"method": null, "url": [1], "headers": 5, "parts": true})"),
                          &http::Params::staticMetaObject);
    QCOMPARE(params.method, "");
    QCOMPARE(params.url, QUrl());
    QCOMPARE(params.headers, Bytes());
    QVERIFY(params.parts.isEmpty());

    const auto record =
        serder::deserialize<Record>(parsed(R"({"number": "abc", "text": null, "texts": 5})"));
    QCOMPARE(record.number, 0);
    QCOMPARE(record.text, QString());
    QVERIFY(record.texts.isEmpty());
}

void TestSerder::sources_data()
{
    QTest::addColumn<QVariant>("source");
    QTest::addColumn<QByteArray>("method");
    const QJsonObject object{{u"method"_s, u"PUT"_s}};
    QTest::newRow("map") << QVariant(object.toVariantMap()) << QByteArray("PUT");
    QTest::newRow("hash") << QVariant(object.toVariantHash()) << QByteArray("PUT");
    QTest::newRow("JSON object") << QVariant(object) << QByteArray("PUT");
    QTest::newRow("JSON value") << QVariant(QJsonValue(object)) << QByteArray("PUT");
    QTest::newRow("JSON document") << QVariant(QJsonDocument(object)) << QByteArray("PUT");
    QTest::newRow("nothing") << QVariant() << QByteArray();
    QTest::newRow("text") << QVariant(u"{\"method\": \"PUT\"}"_s) << QByteArray();
    QTest::newRow("list") << QVariant(QVariantList{object.toVariantMap()}) << QByteArray();
}

void TestSerder::sources()
{
    QFETCH(QVariant, source);
    QTEST(serder::deserialize<http::Params>(source).method, "method");
}

void TestSerder::otherTypes()
{
    const auto record = serder::deserialize<Record>(parsed(R"({
        "number": "12", "flag": "true", "text": [1, {"a": 2}], "texts": ["a", 5],
        "map": {"a": [1]}, "any": {"b": 1}, "part": {"name": "n"}, "numbers": {"a": "3"},
        "setOnly": 4, "readOnly": 8, "objectName": "x"})"));
    QCOMPARE(record.number, 12);
    QCOMPARE(record.flag, true);
    QCOMPARE(record.text, u"[1,{\"a\":2}]"_s);
    QCOMPARE(record.texts, (QStringList{u"a"_s, u"5"_s}));
    QCOMPARE(record.map, (QVariantMap{{u"a"_s, QVariantList{1}}}));
    QCOMPARE(record.any, QVariant(QVariantMap{{u"b"_s, 1}}));
    QCOMPARE(record.part.name, "n");
    QCOMPARE(record.numbers, (QMap<QString, int>{{u"a"_s, 3}}));
    QCOMPARE(record.set, 8);
}

void TestSerder::keepsMembersAbsentInTheSource()
{
    Record record;
    record.number = 5;
    const auto strategy = serder::details::Strategy::create(&Record::staticMetaObject);
    strategy->deserialize(&record, parsed(R"({"flag": true})"), &Record::staticMetaObject);
    QCOMPARE(record.number, 5);
    QCOMPARE(record.text, u"before"_s);
    QCOMPARE(record.flag, true);
}

void TestSerder::requestsDifferInEachMember()
{
    http::Part part;
    part.name = "note";
    http::Params params;
    params.method = "PUT";
    params.url = QUrl(u"http://host.test/"_s);
    params.body = "a";
    params.headers = {{"X-Flag", "1"}};
    params.parts = {part};
    const auto changed = [&params](const std::function<void(http::Params &)> &change) {
        http::Params other = params;
        change(other);
        return !(other == params);
    };
    QVERIFY(!changed([](http::Params &) {}));
    QVERIFY(changed([](http::Params &other) { other.method = "POST"; }));
    QVERIFY(changed([](http::Params &other) { other.url.setPath(u"/b"_s); }));
    QVERIFY(changed([](http::Params &other) { other.body = "b"; }));
    QVERIFY(changed([](http::Params &other) { other.headers.clear(); }));
    QVERIFY(changed([](http::Params &other) { other.parts[0].name = "file"; }));
    QVERIFY(changed([](http::Params &other) { other.parts[0].fileName = "a.xml"; }));
    QVERIFY(changed([](http::Params &other) { other.parts[0].contentType = "text/xml"; }));
    QVERIFY(changed([](http::Params &other) { other.parts[0].headers = {{"X-Part", "2"}}; }));
    QVERIFY(changed([](http::Params &other) { other.parts[0].body = "b"; }));
}

/// What a handler puts together itself is not made of the types of a parsed message.
void TestSerder::listsOfAProgram()
{
    const QVariantMap values{
        {u"texts"_s, QJsonArray{u"a"_s, u"b"_s}},
        {u"text"_s, QStringList{u"a"_s, u"b"_s}},
        {u"map"_s, QVariant::fromValue(QJsonValue(QJsonObject{{u"a"_s, 1}}))},
        {u"part"_s, QVariantHash{{u"name"_s, u"note"_s}}},
    };
    const auto record = serder::deserialize<Record>(values);
    QCOMPARE(record.texts, (QStringList{u"a"_s, u"b"_s}));
    QCOMPARE(record.text, u"[\"a\",\"b\"]"_s);
    QCOMPARE(record.map, (QVariantMap{{u"a"_s, 1}}));
    QCOMPARE(record.part.name, QByteArray("note"));
    const auto failed = serder::deserialize<Record>(
        QVariantMap{{u"text"_s, QVariant::fromValue(QUrlQuery(u"a=1"_s))}});
    QCOMPARE(failed.text, QString());
}

void TestSerder::verbOfARequest()
{
    const auto verb = [](const QByteArray &message) {
        return serder::deserialize<http::Params>(parsed(message)).verb();
    };
    QCOMPARE(verb(R"({"method": "DELETE", "body": "x"})"), "DELETE");
    QCOMPARE(verb(R"({"method": "put"})"), "put");
    QCOMPARE(verb(R"({"body": "x"})"), "POST");
    QCOMPARE(verb(R"({"parts": [{}]})"), "POST");
    QCOMPARE(verb(R"({})"), "GET");
    QCOMPARE(verb(R"({"method": "", "body": ""})"), "GET");
}

void TestSerder::oneStrategyForAType()
{
    using serder::details::Strategy;
    QCOMPARE(Strategy::create(&http::Part::staticMetaObject),
             Strategy::create(&http::Part::staticMetaObject));
    QVERIFY(Strategy::create(&http::Part::staticMetaObject)
            != Strategy::create(&http::Params::staticMetaObject));
}

QTEST_GUILESS_MAIN(TestSerder)
#include "tst_serder.moc"
