#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString message(const QString &xml)
{
    const QJsonObject body{{u"url"_s, u"http://omni.test/sale"_s},
                           {u"headers"_s, QJsonObject{{u"X-Till"_s, u"1"_s}}},
                           {u"body"_s, xml},
                           {u"timeout"_s, 6}};
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

} // namespace

class TestSetOmniHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sendsTheNormalisedDocument();
    void largeDocuments();
    void malformedRequest_data();
    void malformedRequest();
    void failedExchange_data();
    void failedExchange();
    void wellFormedReply_data();
    void wellFormedReply();
    void malformedReply_data();
    void malformedReply();
};

void TestSetOmniHandler::sendsTheNormalisedDocument()
{
    const LogCapture log(u"setomni"_s);
    FakeRestClient net({reply(200, "<ok/>")});
    QVERIFY(deliver(u"setomni"_s, message(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                          "<sale><item   name='хлеб'>1 &amp; 2</item></sale>"_s)));
    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(net.transcript(), QStringList{u"POST http://omni.test/sale"_s});
    // The library chooses the quotes of the declaration.
    QCOMPARE(QByteArray(made.body).replace('\'', '"'),
             QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                        "<sale>\n"
                        " <item name=\"хлеб\">1 &amp; 2</item>\n"
                        "</sale>\n"));
    QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Till"_s, u"1"_s}}));
    QCOMPARE(made.timeoutMs.value_or(-1), 6000);
    QCOMPARE(log.lines(), QStringList());
}

/// A document at the limit is sent; a larger one is refused with a log line that says so.
void TestSetOmniHandler::largeDocuments()
{
    constexpr qsizetype limit = 16 * 1024 * 1024;
    const QString line = u"<item code=\"4607\"><name>bread</name></item>"_s;
    const QString document = u"<sale>"_s + line.repeated((limit - 20) / line.size()) + u"</sale>"_s;
    const QByteArray answer = "<ok>" + QByteArray(4 * 1024 * 1024 - 9, 'x') + "</ok>";
    const LogCapture log(u"setomni"_s);
    const LogCapture limits(u"xmlutils"_s);
    FakeRestClient net({reply(200, answer), reply(200, answer + ' ')});
    QVERIFY(deliver(u"setomni"_s, message(document)));
    QVERIFY(net.lastRequest().body.size() > document.size());
    QVERIFY(net.lastRequest().body.endsWith("</item>\n</sale>\n"));
    QCOMPARE(limits.lines(), QStringList());

    const QString tooLarge = document + QString(limit + 1 - document.size(), u' ');
    QVERIFY(!deliver(u"setomni"_s, message(tooLarge)));
    QCOMPARE(log.lines(), QStringList{u"ERROR Некорректный xml-запрос"_s});
    QCOMPARE(
        limits.lines(),
        QStringList{u"ERROR Документ XML не принят: размер 16777217 байт, допускается не более "
                    "16777216"_s});
    net.nextDelivery();
    QVERIFY(!deliver(u"setomni"_s, message(u"<a/>"_s)));
    QCOMPARE(limits.lines().last(),
             u"ERROR Документ XML не принят: размер 4194305 байт, допускается не более 4194304"_s);
}

void TestSetOmniHandler::malformedRequest_data()
{
    QTest::addColumn<QString>("xml");
    QTest::newRow("cut off") << u"<sale><item>"_s;
    QTest::newRow("not XML") << u"hello"_s;
    QTest::newRow("empty") << u""_s;
}

void TestSetOmniHandler::malformedRequest()
{
    QFETCH(QString, xml);
    const LogCapture log(u"setomni"_s);
    const FakeRestClient net;
    QVERIFY(!deliver(u"setomni"_s, message(xml)));
    QCOMPARE(net.transcript(), QStringList());
    QCOMPARE(log.lines(), QStringList{u"ERROR Некорректный xml-запрос"_s});
}

void TestSetOmniHandler::failedExchange_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::newRow("400") << reply(400, "<ok/>");
    QTest::newRow("500") << reply(500, "<ok/>");
    QTest::newRow("no connection") << noConnection();
}

void TestSetOmniHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    compareOutcome(u"setomni"_s, message(u"<sale/>"_s), answer, false,
                   QStringList{u"INFO Ошибка при отправке запроса: "_s + answer.errorText.ru()});
}

void TestSetOmniHandler::wellFormedReply_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("success") << QByteArray("<ok/>");
    QTest::newRow("an error of the service") << QByteArray("<error code='5'/>");
    QTest::newRow("windows-1251") << QByteArray(
        "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>\xcf\xf0</a>");
}

void TestSetOmniHandler::wellFormedReply()
{
    QFETCH(QByteArray, body);
    FakeRestClient net({reply(200, body)});
    QVERIFY(deliver(u"setomni"_s, message(u"<sale/>"_s)));
}

void TestSetOmniHandler::malformedReply_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("place");
    QTest::newRow("cut off") << QByteArray("<a>\n<b></c>") << u"2, "_s;
    QTest::newRow("not XML") << QByteArray("OK") << u"1, "_s;
    QTest::newRow("empty") << QByteArray() << u"1, "_s;
}

void TestSetOmniHandler::malformedReply()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, place);
    const LogCapture log(u"setomni"_s);
    FakeRestClient net({reply(200, body)});
    QVERIFY(!deliver(u"setomni"_s, message(u"<sale/>"_s)));
    QCOMPARE(log.lines().size(), 1);
    const QString start = u"ERROR Не удалось интерпретировать ответ от сервера(["_s + place;
    QVERIFY2(log.lines().first().startsWith(start), qPrintable(log.lines().first()));
}

QTEST_GUILESS_MAIN(TestSetOmniHandler)
#include "tst_setomnihandler.moc"
