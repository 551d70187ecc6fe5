#include "shared/net/headertext.h"
#include "shared/net/httpheader.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestHttpHeader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void paths_data();
    void paths();
    void keepAlive_data();
    void keepAlive();
    void emptyHead();
    void lineIsReplaced();
    void linesHaveNoLineBreaks();
    void tokens_data();
    void tokens();
};

void TestHttpHeader::paths_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<QString>("path");
    const auto row = [](const char *target, const QString &path) {
        QTest::newRow(target) << QByteArray(target) << path;
    };
    row("/status", u"/status"_s);
    row("/status?a=1", u"/status"_s);
    row("/status#a", u"/status"_s);
    row("http://till.test/status", u"/status"_s);
    row("HTTPS://till.test/status", u"/status"_s);
    row("http://till.test", u"/"_s);
    row("/%D1%87%D0%B5%D0%BA", u"/чек"_s);
    row("/a%2fb%2Fc", u"/a%2Fb%2Fc"_s);
    row("/a%20b", u"/a b"_s);
    // These are no codes.
    row("/100%", u"/100%"_s);
    row("/100%4", u"/100%4"_s);
    row("/100%zz", u"/100%zz"_s);
    row("/100%4z", u"/100%4z"_s);
}

void TestHttpHeader::paths()
{
    QFETCH(QByteArray, target);
    const RequestHeader header("GET " + target + " HTTP/1.1");
    QCOMPARE(header.getMethod(), QByteArray("GET"));
    QTEST(header.getPath(), "path");
}

void TestHttpHeader::keepAlive_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("connection");
    QTest::addColumn<bool>("isKeptAlive");
    QTest::newRow("1.1") << QByteArray("HTTP/1.1") << QByteArray() << true;
    QTest::newRow("1.1, close") << QByteArray("HTTP/1.1") << QByteArray("Close") << false;
    QTest::newRow("1.0") << QByteArray("HTTP/1.0") << QByteArray() << false;
    QTest::newRow("1.0, kept") << QByteArray("HTTP/1.0") << QByteArray("Keep-Alive") << true;
}

void TestHttpHeader::keepAlive()
{
    QFETCH(QByteArray, version);
    QFETCH(QByteArray, connection);
    RequestHeader header("GET / " + version);
    header.setValue("Connection", connection);
    QTEST(header.isKeepAlive(), "isKeptAlive");
}

/// A client that has sent nothing that is a request.
void TestHttpHeader::emptyHead()
{
    for (const RequestHeader &header : {RequestHeader(), RequestHeader(QByteArray())}) {
        QCOMPARE(header.getMethod(), QByteArray());
        QCOMPARE(header.getPath(), QString());
        QVERIFY(!header.isKeepAlive());
        QCOMPARE(header.toByteArray(), QByteArray());
    }
}

void TestHttpHeader::lineIsReplaced()
{
    ResponseHeader header;
    QVERIFY(!header.contains("Content-Type"));
    header.setContentType(u"text/plain"_s);
    header.setContentLength(5);
    header.setValue("CONTENT-TYPE", "application/json");
    QCOMPARE(header.toByteArray(),
             QByteArray("Content-Type: application/json\r\nContent-Length: 5\r\n"));
    QVERIFY(header.contains("content-length"));
    QCOMPARE(header.value("content-length"), QByteArray("5"));
    QCOMPARE(header.value("Host"), QByteArray());
}

/// A text from outside begins no line of its own.
void TestHttpHeader::linesHaveNoLineBreaks()
{
    ResponseHeader header;
    QCOMPARE(header.statusLine(), QByteArray("HTTP/1.1 200 OK\r\n"));
    header.setStatusLine(404, u"Not\r\nFound"_s, 1, 0);
    header.setValue("X-Type", "a\r\nX-Other: b");
    QCOMPARE(header.statusLine(), QByteArray("HTTP/1.0 404 Not  Found\r\n"));
    QCOMPARE(header.toByteArray(), QByteArray("X-Type: a  X-Other: b\r\n"));
}

void TestHttpHeader::tokens_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isToken");
    const auto row = [](const char *text, bool isToken) {
        QTest::newRow(text) << QByteArray(text) << isToken;
    };
    row("", false);
    row("X-Api-Key", true);
    row("azAZ09", true);
    row("!#$%&'*+-.^_`|~", true);
    // The neighbours of the letters and digits.
    for (const char *text : {"/", ":", "@", "[", "{", "}", "\x7f", " ", "X-Ключ", "X Key"})
        row(text, false);
}

void TestHttpHeader::tokens()
{
    QFETCH(QByteArray, text);
    QTEST(http::isToken(text), "isToken");
}

QTEST_GUILESS_MAIN(TestHttpHeader)
#include "tst_httpheader.moc"
