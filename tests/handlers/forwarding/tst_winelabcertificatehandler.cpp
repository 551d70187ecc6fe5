#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message =
    uR"({"url":"http://wine.test/c","headers":{"X":"1"},"body":"<cert/>","timeout":3})"_s;

} // namespace

class TestWinelabCertificateHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request();
    void outcome_data();
    void outcome();
};

void TestWinelabCertificateHandler::request()
{
    const LogCapture log(u"winelabcertificate"_s);
    FakeRestClient net({reply(200, "<r><status>create</status></r>")});
    QVERIFY(deliver(u"winelabcertificate"_s, message));
    QCOMPARE(net.transcript(), QStringList{u"POST http://wine.test/c"_s});
    QCOMPARE(net.lastRequest().body, QByteArray("<cert/>"));
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>()));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 3000);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
}

void TestWinelabCertificateHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");

    const auto status = [](const QByteArray &text) {
        return reply(200, "<r><status>" + text + "</status></r>");
    };
    QTest::newRow("create") << status("create") << true;
    QTest::newRow("CREATE") << status("CREATE") << true;
    QTest::newRow("created") << status("created") << false;
    QTest::newRow("error") << status("error") << false;
    QTest::newRow("empty status") << status("") << false;
    QTest::newRow("first of two counts")
        << reply(200, "<r><status>error</status><status>create</status></r>") << false;
    QTest::newRow("no status") << reply(200, "<r/>") << false;
    QTest::newRow("cut off after the status") << reply(200, "<r><status>create</status>") << false;
    QTest::newRow("not XML") << reply(200, "create") << false;
    QTest::newRow("empty") << reply(200) << false;
    QTest::newRow("400 with create") << reply(400, "<r><status>create</status></r>") << false;
    QTest::newRow("no connection") << noConnection() << false;
}

void TestWinelabCertificateHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);

    const LogCapture log(u"winelabcertificate"_s);
    FakeRestClient net({answer});
    QCOMPARE(deliver(u"winelabcertificate"_s, message), finished);
    QStringList expected{u"INFO Отправка сообщения 7"_s};
    if (answer.errorCode > 0)
        expected.append(u"ERROR Ошибка при отправке сообщения: "_s + answer.errorText.ru());
    QCOMPARE(log.lines(), expected);
}

QTEST_GUILESS_MAIN(TestWinelabCertificateHandler)
#include "tst_winelabcertificatehandler.moc"
