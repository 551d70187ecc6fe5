#include "shared/core/compactjson.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString byLibrary(const QVariantMap &object)
{
    return QString::fromUtf8(QJsonDocument::fromVariant(object).toJson(QJsonDocument::Compact));
}

/// A value of up to `depth` levels with all kinds of members and all kinds of letters.
QVariant randomValue(QRandomGenerator &random, int depth)
{
    switch (random.bounded(depth > 0 ? 8 : 6)) {
    case 0:
        return random.bounded(-1000, 1000);
    case 1:
        return random.generateDouble() * 1e6 - 5e5;
    case 2:
        return random.bounded(2) == 1;
    case 3:
        return QVariant::fromValue(nullptr);
    case 4:
    case 5: {
        static const QString letters =
            u"az09\"\\/\b\f\n\r\t\u0001\u007f\u0080жё€\u2028😀"_s + QChar(0xd800) + QChar(0xdfff);
        QString text;
        for (int i = random.bounded(12); i > 0; --i)
            text += letters[random.bounded(static_cast<int>(letters.size()))];
        return text;
    }
    case 6: {
        QVariantList list;
        for (int i = random.bounded(4); i > 0; --i)
            list.append(randomValue(random, depth - 1));
        return list;
    }
    default: {
        QVariantMap map;
        for (int i = random.bounded(4); i > 0; --i)
            map.insert(randomValue(random, 0).toString(), randomValue(random, depth - 1));
        return map;
    }
    }
}

} // namespace

class TestCompactJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void values_data();
    void values();
    void parsedMessage();
    void sameAsTheLibrary();
};

void TestCompactJson::values_data()
{
    QTest::addColumn<QVariantMap>("object");
    QTest::addColumn<QString>("json");

    const auto one = [](const QVariant &value) {
        return QVariantMap{{u"a"_s, value}};
    };
    QTest::newRow("empty") << QVariantMap() << u"{}"_s;
    QTest::newRow("text") << one(u"жук"_s) << uR"({"a":"жук"})"_s;
    QTest::newRow("quote and backslash") << one(u"\"\\\""_s) << uR"({"a":"\"\\\""})"_s;
    QTest::newRow("line end") << one(u"1\n2"_s) << uR"({"a":"1\n2"})"_s;
    QTest::newRow("placeholder") << one(u"%1"_s) << uR"({"a":"%1"})"_s;
    QTest::newRow("whole number") << one(12345678901LL) << uR"({"a":12345678901})"_s;
    QTest::newRow("fraction") << one(1990.5) << uR"({"a":1990.5})"_s;
    QTest::newRow("truth") << one(true) << uR"({"a":true})"_s;
    QTest::newRow("null") << one(QVariant::fromValue(nullptr)) << uR"({"a":null})"_s;
    QTest::newRow("nested") << QVariantMap{{u"b"_s, QVariantList{1, QVariantMap{{u"c"_s, u""_s}}}},
                                           {u"a"_s, QVariantMap()}}
                            << uR"({"a":{},"b":[1,{"c":""}]})"_s;
}

void TestCompactJson::values()
{
    QFETCH(QVariantMap, object);
    QFETCH(QString, json);
    QCOMPARE(compactJson(object), json);
    QCOMPARE(byLibrary(object), json);
}

void TestCompactJson::parsedMessage()
{
    const QByteArray text =
        R"({ "b" : [ 1 , 2.50, -0.0, 1e300 ], "a" : { "u":"http://x/?a=1&b=ж" } })";
    const QVariantMap body = QJsonDocument::fromJson(text).object().toVariantMap();
    QCOMPARE(compactJson(body), byLibrary(body));
}

void TestCompactJson::sameAsTheLibrary()
{
    QRandomGenerator random(42);
    for (int round = 0; round < 5000; ++round) {
        const QVariantMap object{{u"x"_s, randomValue(random, 3)},
                                 {u"y"_s, randomValue(random, 3)}};
        QCOMPARE(compactJson(object), byLibrary(object));
    }
}

QTEST_GUILESS_MAIN(TestCompactJson)
#include "tst_compactjson.moc"
