#include "shared/net/urlquery.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// The query as it goes out when it has this one value.
QByteArray sent(const QString &value)
{
    QUrlQuery query;
    query.addQueryItem(u"key"_s, http::queryValue(value));
    QUrl url(u"http://service.test/path"_s);
    http::setQuery(url, query);
    return url.query(QUrl::FullyEncoded).toLatin1();
}

} // namespace

class TestUrlQuery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void value_data();
    void value();
    void everyCharacterArrives();
    void queryOfTheAddressIsReplaced();
    void unreadableAddress();
};

void TestUrlQuery::value_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("plain") << u"Till-7.a_b~c"_s << "key=Till-7.a_b~c"_ba;
    QTest::newRow("null keeps the equals sign") << QString() << "key="_ba;
    QTest::newRow("empty keeps the equals sign") << u""_s << "key="_ba;
    QTest::newRow("borders of the query") << u"a&b=c#d?e"_s << "key=a%26b%3Dc%23d%3Fe"_ba;
    QTest::newRow("plus is not a blank") << u"22+00"_s << "key=22%2B00"_ba;
    QTest::newRow("a blank is not a plus") << u"22 00"_s << "key=22%2000"_ba;
    QTest::newRow("not encoded already") << u"%41%2B%"_s << "key=%2541%252B%25"_ba;
    QTest::newRow("letters") << u"Обувь"_s << "key=%D0%9E%D0%B1%D1%83%D0%B2%D1%8C"_ba;
}

void TestUrlQuery::value()
{
    QFETCH(QString, value);
    QTEST(sent(value), "expected");
}

void TestUrlQuery::everyCharacterArrives()
{
    QString all = u"яЖ€\U0001F9FE"_s;
    for (char16_t symbol = 1; symbol < 0x100; ++symbol)
        all.append(QChar(symbol));
    const QByteArray query = sent(all);
    QVERIFY(query.startsWith("key="));
    const QByteArray encoded = query.sliced(4);
    for (const char border : {'&', '=', '+', '#', ' '})
        QVERIFY2(!encoded.contains(border), QByteArray(1, border));
    QCOMPARE(QString::fromUtf8(QByteArray::fromPercentEncoding(encoded)), all);
}

void TestUrlQuery::queryOfTheAddressIsReplaced()
{
    QUrl url(u"http://service.test/path?old=1"_s);
    http::setQuery(url, QUrlQuery(u"new=2"_s));
    QCOMPARE(url.toString(), u"http://service.test/path?new=2"_s);
    http::setQuery(url, {});
    QCOMPARE(url.toString(), u"http://service.test/path"_s);
}

/// The value must not turn the address into that of another server.
void TestUrlQuery::unreadableAddress()
{
    QUrl url(u"http://service.test:99999/path"_s);
    http::setQuery(url, QUrlQuery(u"a=1"_s));
    QVERIFY(!url.isValid());
    QVERIFY(url.errorString().contains(u"http://service.test:99999/path"));
}

QTEST_GUILESS_MAIN(TestUrlQuery)
#include "tst_urlquery.moc"
