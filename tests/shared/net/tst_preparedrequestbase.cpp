#include "shared/net/preparedrequestbase.h"
#include "shared/net/serder.h"
#include "tests/support/fakerestclient.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestPreparedRequestBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isFilledByItsNames();
    void wrongKindsAreEmpty();
    void reply_data();
    void reply();
    void failureIsAnException();
};

void TestPreparedRequestBase::isFilledByItsNames()
{
    const auto request = serder::deserialize<tsum::PreparedRequestBase>(
        QVariantMap{{u"method"_s, u"PUT"_s},
                    {u"url"_s, u"http://tsum.test/a?b=c"_s},
                    {u"headers"_s, QVariantMap{{u"A"_s, 5}, {u"B"_s, u"ж"_s}}},
                    {u"body"_s, QVariantMap{{u"sum"_s, 1990.5}}},
                    {u"timeout"_s, 9}});
    QCOMPARE(request.method, "PUT");
    QCOMPARE(request.url, QUrl(u"http://tsum.test/a?b=c"_s));
    QCOMPARE(request.headers, (QMap<QByteArray, QByteArray>{{"A", "5"}, {"B", "ж"}}));
    QCOMPARE(request.body, "{\"sum\":1990.5}");
    QCOMPARE(request.timeout, 9);
}

void TestPreparedRequestBase::wrongKindsAreEmpty()
{
    const auto request = serder::deserialize<tsum::PreparedRequestBase>(QVariantMap{
        {u"url"_s, QVariantList{1}}, {u"headers"_s, u"A: 5"_s}, {u"timeout"_s, u"soon"_s}});
    QVERIFY(request.url.isEmpty());
    QVERIFY(request.headers.isEmpty());
    QCOMPARE(request.timeout, 0);
}

void TestPreparedRequestBase::reply_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("an object") << R"({"a":"ж"})"_ba << QVariant(QVariantMap{{u"a"_s, u"ж"_s}});
    QTest::newRow("a list") << "[]"_ba << QVariant(QVariantList());
    QTest::newRow("not JSON") << "<ok/>"_ba << QVariant();
    QTest::newRow("empty") << ""_ba << QVariant();
}

void TestPreparedRequestBase::reply()
{
    QFETCH(QByteArray, body);
    QFETCH(QVariant, value);
    FakeRestClient net({::reply(200, body)});
    tsum::PreparedRequestBase request;
    request.url = QUrl(u"http://tsum.test/"_s);
    QCOMPARE(request.getResponseVariant(), value);
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 0"_s, u"GET http://tsum.test/"_s}));
}

void TestPreparedRequestBase::failureIsAnException()
{
    FakeRestClient net({noConnection(), ::reply(500, "{}")});
    const tsum::PreparedRequestBase request;
    for (const http::Response &answer : {noConnection(), ::reply(500)}) {
        QString text;
        try {
            request.getResponseVariant();
        } catch (const tsum::Exception &exception) {
            text = exception.tr().ru();
        }
        QCOMPARE(text, answer.errorText.ru());
    }
}

QTEST_GUILESS_MAIN(TestPreparedRequestBase)
#include "tst_preparedrequestbase.moc"
