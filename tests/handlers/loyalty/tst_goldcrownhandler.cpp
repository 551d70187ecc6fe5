#include "handlers/loyalty/goldcrownhandler.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/certificates.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString opening = u"INFO Отправка сообщения 7"_s;
const QString noStatus = u"WARN Некорректный ответ от сервера, отсутствует поле status"_s;
const QString noCode = u"WARN Некорректный ответ от сервера, отсутствует поле code"_s;

QString message(const QString &certificate)
{
    return u"{\"url\":\"https://gold.test/a\",\"headers\":{\"X-Till\":3},\"body\":\"<к %1/>\","
           "\"timeout\":3,\"certificatePassword\":\"secret\",\"certificatePath\":\"%2\"}"_s.replace(
               u"%2"_s, certificate);
}

/// A handler for which the codes 7 and 8 are no failure.
class Tolerant : public GoldCrownHandler
{
public:
    Tolerant() { allowedErrors = {7, 8}; }
    void onAllowedError(const QString &description) override { told.append(description); }
    QStringList told;
};

} // namespace

class TstGoldCrownHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void request();
    void unusableCertificate_data();
    void unusableCertificate();
    void failedExchange_data();
    void failedExchange();
    void replyDecides_data();
    void replyDecides();
    void judgement_data();
    void judgement();
    void allowedErrors_data();
    void allowedErrors();
    void operationsAreVirtual();
    void slots_();

private:
    Certificates certificates;
    QString certificate;
    std::unique_ptr<QueueDatabase> till;
};

void TstGoldCrownHandler::initTestCase()
{
    certificate = certificates.pkcs12(
        certificates.client(certificates.authority(u"authority"_s), u"till"_s), u"secret"_s);
}

void TstGoldCrownHandler::init()
{
    till = std::make_unique<QueueDatabase>();
    QDir(till->root()).mkpath(u"tmp"_s);
}

void TstGoldCrownHandler::cleanup()
{
    till.reset();
}

void TstGoldCrownHandler::request()
{
    const LogCapture log(u"goldcrown"_s);
    FakeRestClient net({reply(200, "<a><status><code>0</code></status></a>")});
    QVERIFY(deliver(u"goldcrown"_s, message(certificate)));

    QFile source(certificate);
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QByteArray digest =
        QCryptographicHash::hash(source.readAll(), QCryptographicHash::Md5).toHex();
    const QString pem =
        u"%1/tmp/queue_spasibo_%2.pem"_s.arg(till->root(), QString::fromLatin1(digest));
    QVERIFY(QFile::exists(pem));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeout 10"_s, u"setCertificatePath "_s + pem,
                          u"setCertificatePassword secret"_s, u"POST https://gold.test/a"_s}));
    QCOMPARE(net.lastRequest().body, "<к %1/>");
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}}));
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TstGoldCrownHandler::unusableCertificate_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("line");
    QTest::newRow("missing") << u"/missing.p12"_s
                             << u"ERROR Ошибка чтения сертификата /missing.p12"_s;
    QTest::newRow("none") << u""_s << u"ERROR Ошибка чтения сертификата "_s;
    QTest::newRow("no certificate")
        << QString(certificates.file("x")) << u"ERROR Ошибка генерации сертификата"_s;
}

void TstGoldCrownHandler::unusableCertificate()
{
    QFETCH(QString, path);
    QFETCH(QString, line);
    const LogCapture log(u"goldcrown"_s);
    FakeRestClient net;
    QVERIFY(!deliver(u"goldcrown"_s, message(path)));
    QCOMPARE(net.transcript(), QStringList());
    QCOMPARE(log.lines(), (QStringList{opening, line}));
}

void TstGoldCrownHandler::failedExchange_data()
{
    QTest::addColumn<http::Response>("answer");
    const QByteArray success = "<status><code>0</code></status>";
    QTest::newRow("no connection") << noConnection();
    QTest::newRow("no answer in time") << timeout();
    QTest::newRow("HTTP 500, code 0") << reply(500, success);
    QTest::newRow("HTTP 400, code 0") << reply(400, success);
}

void TstGoldCrownHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    const LogCapture log(u"goldcrown"_s);
    FakeRestClient net({answer});
    QVERIFY(!deliver(u"goldcrown"_s, message(certificate)));
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Ошибка при отправке сообщения: "_s
                                                    + answer.errorText.ru()}));
}

void TstGoldCrownHandler::replyDecides_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::newRow("code 0") << "<status><code>0</code></status>"_ba << true;
    QTest::newRow("code 7") << "<status><code>7</code></status>"_ba << false;
}

void TstGoldCrownHandler::replyDecides()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    FakeRestClient net({::reply(201, reply)});
    QCOMPARE(deliver(u"goldcrown"_s, message(certificate)), finished);
}

void TstGoldCrownHandler::judgement_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList none;
    const QString seven = u"WARN Код ошибки: 7"_s;
    // clang-format off
    QTest::newRow("code 0")                    << "<a><status><code>0</code></status></a>"_ba << true << none;
    QTest::newRow("status is the root")        << "<status><code>0</code></status>"_ba << true << none;
    QTest::newRow("deep inside")               << "<a><b><status><c><code>0</code></c></status></b></a>"_ba << true << none;
    QTest::newRow("code 0 with a description") << "<status><code>0</code><description>x</description></status>"_ba << true << none;
    QTest::newRow("no number is 0")            << "<status><code>abc</code></status>"_ba << true << none;
    QTest::newRow("an empty code is 0")        << "<status><code/></status>"_ba << true << none;
    QTest::newRow("more than 32 bits is 0")    << "<status><code>4294967303</code></status>"_ba << true << none;
    QTest::newRow("a fraction is 0")           << "<status><code>7.0</code></status>"_ba << true << none;
    QTest::newRow("code 7")                    << "<status><code>7</code></status>"_ba << false << QStringList{seven};
    QTest::newRow("code 7, described")         << u"<status><code>7</code><description>нет %1</description></status>"_s.toUtf8() << false << QStringList{seven, u"WARN Сообщение об ошибке: нет %1"_s};
    QTest::newRow("code 7, empty description") << "<status><code>7</code><description/></status>"_ba << false << QStringList{seven, u"WARN Сообщение об ошибке: "_s};
    QTest::newRow("a description elsewhere")   << "<a><status><code>7</code></status><description>x</description></a>"_ba << false << QStringList{seven};
    QTest::newRow("a code below 0")            << "<status><code>-7</code></status>"_ba << false << QStringList{u"WARN Код ошибки: -7"_s};
    QTest::newRow("the first code counts")     << "<status><code>7</code><code>0</code></status>"_ba << false << QStringList{seven};
    QTest::newRow("the first status counts")   << "<a><status><code>7</code></status><status><code>0</code></status></a>"_ba << false << QStringList{seven};
    QTest::newRow("first status without code") << "<a><status/><status><code>0</code></status></a>"_ba << false << QStringList{noCode};
    QTest::newRow("code outside status")       << "<a><code>0</code><status/></a>"_ba << false << QStringList{noCode};
    QTest::newRow("no status")                 << "<a><code>0</code></a>"_ba << false << QStringList{noStatus};
    QTest::newRow("another case")              << "<a><Status><code>0</code></Status></a>"_ba << false << QStringList{noStatus};
    QTest::newRow("empty")                     << ""_ba << false << QStringList{noStatus};
    QTest::newRow("no XML")                    << "{\"status\":{\"code\":0}}"_ba << false << QStringList{noStatus};
    QTest::newRow("cut off behind the code")   << "<a><status><code>0</code></status>"_ba << false << QStringList{noStatus};
    QTest::newRow("own entity")                << "<!DOCTYPE a [<!ENTITY b \"0\">]><status><code>&b;</code></status>"_ba << false << QStringList{noStatus};
    QTest::newRow("entity in a file")          << "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><status><code>&b;</code></status>"_ba << false << QStringList{noStatus};
    QTest::newRow("a document type alone")     << "<!DOCTYPE a SYSTEM \"file:///missing.dtd\"><status><code>0</code></status>"_ba << true << none;
    QTest::newRow("default namespace")         << "<a xmlns='urn:a'><status><code>0</code></status></a>"_ba << true << none;
    QTest::newRow("a prefix is another name")  << "<a xmlns:s='urn:s'><s:status><code>0</code></s:status></a>"_ba << false << QStringList{noStatus};
    QTest::newRow("windows-1251")              << "<?xml version=\"1.0\" encoding=\"windows-1251\"?><status><code>7</code><description>\xed\xe5\xf2</description></status>"_ba << false << QStringList{seven, u"WARN Сообщение об ошибке: нет"_s};
    // clang-format on
}

void TstGoldCrownHandler::judgement()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    const LogCapture log(u"goldcrown"_s);
    QCOMPARE(GoldCrownHandler().parseReply(reply), finished);
    QCOMPARE(log.lines(), lines);
}

void TstGoldCrownHandler::allowedErrors_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("told");
    QTest::addColumn<QStringList>("lines");

    const QString allowed =
        u"WARN Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s;
    // clang-format off
    QTest::newRow("allowed")            << "<status><code>7</code><description>x</description></status>"_ba << true
                                        << QStringList{u"x"_s} << QStringList{allowed, u"WARN Код ошибки: 7"_s, u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("allowed, no text")   << "<status><code>8</code></status>"_ba << true
                                        << QStringList{u""_s} << QStringList{allowed, u"WARN Код ошибки: 8"_s};
    QTest::newRow("another")            << "<status><code>9</code><description>x</description></status>"_ba << false
                                        << QStringList() << QStringList{u"WARN Код ошибки: 9"_s, u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("success")            << "<status><code>0</code><description>x</description></status>"_ba << true
                                        << QStringList() << QStringList();
    // clang-format on
}

void TstGoldCrownHandler::allowedErrors()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QStringList, told);
    QFETCH(QStringList, lines);
    const LogCapture log(u"goldcrown"_s);
    Tolerant handler;
    QCOMPARE(handler.parseReply(reply), finished);
    QCOMPARE(handler.told, told);
    QCOMPARE(log.lines(), lines);
}

void TstGoldCrownHandler::operationsAreVirtual()
{
    struct Recording : GoldCrownHandler
    {
        bool parseReply(const QByteArray &reply) override
        {
            seen += u"reply "_s + QString::fromUtf8(reply);
            return true;
        }
        QString prepareCertificate(const QString &path, const QString &password) override
        {
            seen += u"certificate %1 %2"_s.arg(path, password);
            return u"/x.pem"_s;
        }
        QStringList seen;
    } handler;
    FakeRestClient net({reply(200, "r")});
    Message message;
    message.body = {{u"certificatePath"_s, u"/c.p12"_s}, {u"certificatePassword"_s, u"p"_s}};
    QVERIFY(handler.sendMessage(message));
    QCOMPARE(handler.seen, (QStringList{u"certificate /c.p12 p"_s, u"reply r"_s}));
    QCOMPARE(net.lastRequest().certificatePath, u"/x.pem"_s);
}

void TstGoldCrownHandler::slots_()
{
    QCOMPARE(slotOf(&GoldCrownHandler::sendMessage), 5);
    QCOMPARE(slotOf(&GoldCrownHandler::parseReply), 9);
    QCOMPARE(slotOf(&GoldCrownHandler::onAllowedError), 10);
    QCOMPARE(slotOf(&GoldCrownHandler::prepareCertificate), 11);
}

QTEST_GUILESS_MAIN(TstGoldCrownHandler)
#include "tst_goldcrownhandler.moc"
