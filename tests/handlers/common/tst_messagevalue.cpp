#include "handlers/common/messagevalue.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

Message withBody(const QString &json)
{
    Message message;
    message.body = QJsonDocument::fromJson(json.toUtf8()).object().toVariantMap();
    return message;
}

QVariant read(const Message &message, QMetaType type, bool withDefault)
{
    const QString key = u"k"_s;
    switch (type.id()) {
    case QMetaType::QString:
        return messageValue<QString>(message, key, withDefault ? u"default"_s : QString());
    case QMetaType::QByteArray:
        return messageValue<QByteArray>(message, key, withDefault ? "default" : QByteArray());
    case QMetaType::Int:
        return messageValue<int>(message, key, withDefault ? 10 : 0);
    case QMetaType::QStringList:
        return messageValue<QStringList>(message, key,
                                         withDefault ? QStringList{u"default"_s} : QStringList());
    case QMetaType::QVariantMap:
        return messageValue<QVariantMap>(
            message, key, withDefault ? QVariantMap{{u"default"_s, 1}} : QVariantMap());
    case QMetaType::QUrl:
        return messageValue<QUrl>(message, key, withDefault ? QUrl(u"http://default"_s) : QUrl());
    case QMetaType::QJsonObject:
        return QVariant::fromValue(messageValue<QJsonObject>(
            message, key, withDefault ? QJsonObject{{u"default"_s, 1}} : QJsonObject()));
    default:
        return {};
    }
}

} // namespace

class TestMessageValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void values_data();
    void values();
    void absentKeyGivesTheDefault();
    void keysDifferByCase();
    void headers();
};

void TestMessageValue::values_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QVariant>("expected");

    const auto row = [](const char *name, const QString &json, const QVariant &expected) {
        QTest::newRow(name) << json << expected;
    };
    row("text as text", u"\"abc\""_s, u"abc"_s);
    row("number as text", u"12"_s, u"12"_s);
    row("object as text: empty", u"{\"a\":1}"_s, QString());
    row("null as text: empty", u"null"_s, QString());
    row("text as bytes", u"\"абв\""_s, QByteArray("абв"));
    row("number as bytes", u"12"_s, QByteArray("12"));
    row("object as bytes: empty", u"{\"a\":1}"_s, QByteArray());
    row("array as bytes: empty", u"[1]"_s, QByteArray());
    row("number as int", u"12"_s, 12);
    row("numeric text as int", u"\"12\""_s, 12);
    row("other text as int: 0", u"\"abc\""_s, 0);
    row("object as int: 0", u"{}"_s, 0);
    row("array as list", u"[\"a\",\"b\"]"_s, QStringList({u"a"_s, u"b"_s}));
    row("object as map", u"{\"a\":\"1\"}"_s, QVariantMap({{u"a"_s, u"1"_s}}));
    row("text as map: empty", u"\"abc\""_s, QVariantMap());
    row("array as map: empty", u"[1]"_s, QVariantMap());
    row("text as address", u"\"http://x/y\""_s, QUrl(u"http://x/y"_s));
    row("number as address: empty", u"{}"_s, QUrl());
    row("object as object", u"{\"a\":\"1\"}"_s, QVariant::fromValue(QJsonObject{{u"a"_s, u"1"_s}}));
    row("text as object: empty", u"\"{}\""_s, QVariant::fromValue(QJsonObject()));
}

void TestMessageValue::values()
{
    QFETCH(QString, json);
    QFETCH(QVariant, expected);
    const Message message = withBody(u"{\"k\":"_s + json + u"}"_s);
    // A value that cannot be converted is empty, regardless of the default.
    QCOMPARE(read(message, expected.metaType(), false), expected);
    QCOMPARE(read(message, expected.metaType(), true), expected);
}

void TestMessageValue::absentKeyGivesTheDefault()
{
    const Message message;
    QCOMPARE(messageValue<int>(message, u"timeout"_s, 10), 10);
    QCOMPARE(messageValue<int>(message, u"timeout"_s), 0);
    QCOMPARE(messageValue<QString>(message, u"url"_s, u"x"_s), u"x"_s);
    QCOMPARE(messageValue<QVariantMap>(message, u"headers"_s), QVariantMap());
    QCOMPARE(messageValue<QJsonObject>(message, u"body"_s, {{u"a"_s, 1}}),
             (QJsonObject{{u"a"_s, 1}}));
}

void TestMessageValue::keysDifferByCase()
{
    const Message message = withBody(u"{\"Timeout\":5}"_s);
    QCOMPARE(messageValue<int>(message, u"timeout"_s, 10), 10);
    QCOMPARE(messageValue<int>(message, u"Timeout"_s, 10), 5);
}

void TestMessageValue::headers()
{
    QCOMPARE(messageHeaders({}), (QHash<QString, QString>()));
    QCOMPARE(messageHeaders({{u"a"_s, u"x"_s}, {u"n"_s, 5}, {u"b"_s, true}}),
             (QHash<QString, QString>{{u"a"_s, u"x"_s}, {u"n"_s, u"5"_s}, {u"b"_s, u"true"_s}}));
    QCOMPARE(messageHeaders({{u"m"_s, QVariantMap{{u"a"_s, 1}}}}),
             (QHash<QString, QString>{{u"m"_s, u""_s}}));
}

QTEST_GUILESS_MAIN(TestMessageValue)
#include "tst_messagevalue.moc"
