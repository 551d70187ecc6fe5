#include "shared/core/jsonvalue.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonObject reply()
{
    return QJsonDocument::fromJson(R"({
        "status": "Success",
        "order": {
            "processingStatus": "Processed",
            "totalPrice": 12.5,
            "lines": [{"lineId": 1}],
            "nothing": null,
            "": {"": "empty"}
        }
    })")
        .object();
}

} // namespace

class TestJsonValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void path_data();
    void path();
    void noKeys();
    void deep();
    void text_data();
    void text();
};

void TestJsonValue::path_data()
{
    const QJsonValue null(QJsonValue::Null);
    const QJsonValue absent(QJsonValue::Undefined);

    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("value");

    QTest::newRow("at the top") << u"status"_s << QJsonValue(u"Success"_s);
    QTest::newRow("inside") << u"order.processingStatus"_s << QJsonValue(u"Processed"_s);
    QTest::newRow("a number") << u"order.totalPrice"_s << QJsonValue(12.5);
    QTest::newRow("an array") << u"order.lines"_s
                              << QJsonValue(QJsonArray{QJsonObject{{u"lineId"_s, 1}}});
    QTest::newRow("a null") << u"order.nothing"_s << null;
    QTest::newRow("ends on an object") << u"order"_s << null;
    QTest::newRow("absent at the top") << u"customer"_s << absent;
    QTest::newRow("absent inside") << u"order.customer"_s << absent;
    QTest::newRow("absent on the way") << u"order.ids.number"_s << absent;
    QTest::newRow("a text on the way") << u"status.ids.number"_s << QJsonValue(u"Success"_s);
    QTest::newRow("a number on the way") << u"order.totalPrice.amount.rest"_s << QJsonValue(12.5);
    QTest::newRow("an array on the way, with an index")
        << u"order.lines.0"_s << QJsonValue(QJsonArray{QJsonObject{{u"lineId"_s, 1}}});
    QTest::newRow("empty parts are keys") << u"order.."_s << QJsonValue(u"empty"_s);
    QTest::newRow("an empty first part") << u".order"_s << absent;
    QTest::newRow("an empty path is one empty key") << u""_s << absent;
    QTest::newRow("case matters") << u"Status"_s << absent;
}

void TestJsonValue::path()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue, value);

    QCOMPARE(jsonValueByPath(reply(), path), value);
    QCOMPARE(jsonValueByPath(reply(), path.split(u'.')), value);
}

void TestJsonValue::noKeys()
{
    QCOMPARE(jsonValueByPath(reply(), QStringList()), QJsonValue(QJsonValue::Null));
}

void TestJsonValue::deep()
{
    QJsonObject object{{u"end"_s, 7}};
    QStringList keys{u"end"_s};
    for (int i = 0; i < 1000; ++i) {
        object = QJsonObject{{u"a"_s, object}};
        keys.prepend(u"a"_s);
    }
    QCOMPARE(jsonValueByPath(object, keys), QJsonValue(7));
}

void TestJsonValue::text_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("looseText");

    QTest::newRow("text") << R"("7900")"_ba << u"7900"_s << u"7900"_s;
    QTest::newRow("number") << "79001234567"_ba << QString() << u"79001234567"_s;
    QTest::newRow("true") << "true"_ba << QString() << u"true"_s;
    QTest::newRow("null") << "null"_ba << QString() << QString();
    QTest::newRow("array") << R"(["7900"])"_ba << QString() << QString();
    QTest::newRow("object") << R"({"a":"7900"})"_ba << QString() << QString();
}

void TestJsonValue::text()
{
    QFETCH(QByteArray, json);
    const QJsonObject object =
        QJsonDocument::fromJson(R"({"customer":{"phone":)" + json + "}}").object();
    QTEST(jsonTextByPath(object, u"customer.phone"_s), "text");
    QTEST(jsonLooseTextByPath(object, u"customer.phone"_s), "looseText");
    QCOMPARE(jsonTextByPath(object, u"customer.absent"_s), QString());
    QCOMPARE(jsonLooseTextByPath(object, u"customer.absent"_s), QString());
}

QTEST_GUILESS_MAIN(TestJsonValue)
#include "tst_jsonvalue.moc"
