#include "tools/queuectl/masking.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

/// Values that must not be shown.
class TestMasking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void names_data();
    void names();
    void objects_data();
    void objects();
    void furtherKeys();
    void texts_data();
    void texts();
    void longNumbers_data();
    void longNumbers();
};

void TestMasking::names_data()
{
    QTest::addColumn<bool>("isSecret");
    for (const char *name : {"password", "Password", "certPassword", "passwd", "pwd", "token",
                             "access_token", "secretKey", "Authorization", "Cookie", "X-Api-Key",
                             "apiKey", "pin", "cvv", "signature", "passphrase"})
        QTest::newRow(name) << true;
    for (const char *name :
         {"url", "cardNumber", "keyboard", "passenger", "shipping", "terminal", "sum"})
        QTest::newRow(name) << false;
}

void TestMasking::names()
{
    QFETCH(const bool, isSecret);
    QCOMPARE(isSecretName(QString::fromLatin1(QTest::currentDataTag())), isSecret);
}

void TestMasking::objects_data()
{
    QTest::addColumn<QByteArray>("given");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("plain") << QByteArray(R"({"password":"a","sum":1})")
                           << QByteArray(R"({"password":"***","sum":1})");
    QTest::newRow("number") << QByteArray(R"({"pin":1234})") << QByteArray(R"({"pin":"***"})");
    QTest::newRow("object") << QByteArray(R"({"token":{"a":"b"}})")
                            << QByteArray(R"({"token":"***"})");
    QTest::newRow("empty stays, it tells something")
        << QByteArray(R"({"password":"","token":null})")
        << QByteArray(R"({"password":"","token":null})");
    QTest::newRow("nested") << QByteArray(R"({"request":{"headers":{"Authorization":"Bearer x"}}})")
                            << QByteArray(R"({"request":{"headers":{"Authorization":"***"}}})");
    QTest::newRow("in a list") << QByteArray(R"({"a":[{"pwd":"x"}]})")
                               << QByteArray(R"({"a":[{"pwd":"***"}]})");
    QTest::newRow("in JSON in a text")
        << QByteArray(R"({"body":"{\"password\":\"x\",\"sum\":1}"})")
        << QByteArray(R"({"body":"{\"password\":\"***\",\"sum\":1}"})");
    QTest::newRow("in XML in a text")
        << QByteArray(R"({"body":"<a><Password>x</Password></a>"})")
        << QByteArray(R"({"body":"<a><Password>***</Password></a>"})");
    QTest::newRow("in an address")
        << QByteArray(R"({"url":"https://u:p@host/a?b=1&token=x&c=2"})")
        << QByteArray(R"({"url":"https://***@host/a?b=1&token=***&c=2"})");
    QTest::newRow("in a form") << QByteArray(R"({"data":"login=a&password=x"})")
                               << QByteArray(R"({"data":"login=a&password=***"})");
}

void TestMasking::objects()
{
    QFETCH(const QByteArray, given);
    QFETCH(const QByteArray, shown);
    const QJsonObject result = masked(QJsonDocument::fromJson(given).object()).toObject();
    QCOMPARE(QJsonDocument(result).toJson(QJsonDocument::Compact), shown);
}

void TestMasking::furtherKeys()
{
    const QJsonObject given{
        {u"a"_s, u"x"_s}, {u"b"_s, QJsonObject{{u"c"_s, u"y"_s}}}, {u"c"_s, u"z"_s}};
    const QJsonObject result = masked(given, {u"a"_s, u"b.c"_s}).toObject();
    QCOMPARE(result.value(u"a"_s).toString(), u"***"_s);
    QCOMPARE(result.value(u"b"_s).toObject().value(u"c"_s).toString(), u"***"_s);
    QCOMPARE(result.value(u"c"_s).toString(), u"z"_s);
}

void TestMasking::texts_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("shown");
    QTest::newRow("a log line with a body")
        << u"Обработка сообщения: {\"token\":\"x\",\"a\":1} готово"_s
        << u"Обработка сообщения: {\"a\":1,\"token\":\"***\"} готово"_s;
    QTest::newRow("a header") << u"заголовки: [Authorization: Bearer abc, X: 1]"_s
                              << u"заголовки: [Authorization: ***, X: 1]"_s;
    QTest::newRow("a cut off body")
        << u"{\"password\":\"x\",\"a"_s << u"{\"password\":\"***\",\"a"_s;
    QTest::newRow("nothing secret")
        << u"Период обработки сообщений: 20 сек."_s << u"Период обработки сообщений: 20 сек."_s;
}

void TestMasking::texts()
{
    QFETCH(const QString, given);
    QTEST(maskedText(given), "shown");
}

void TestMasking::longNumbers_data()
{
    QTest::addColumn<QString>("shown");
    QTest::newRow("77001234567890") << u"***7890"_s;
    QTest::newRow("+79161234567") << u"+***4567"_s;
    QTest::newRow("Удаление сообщения 123456789") << u"Удаление сообщения 123456789"_s;
    QTest::newRow("2026-01-31 12:00:00,123") << u"2026-01-31 12:00:00,123"_s;
}

void TestMasking::longNumbers()
{
    QTEST(withoutLongNumbers(QString::fromUtf8(QTest::currentDataTag())), "shown");
}

QTEST_GUILESS_MAIN(TestMasking)
#include "tst_masking.moc"
