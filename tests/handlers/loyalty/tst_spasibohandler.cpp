#include "handlers/loyalty/spasibohandler.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/certificates.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString opening = u"INFO Отправка сообщения Purchase API 7"_s;
const QString request =
    uR"({"method":"PUT","url":"https://purchase.test/v1","headers":{"X-Till":3},"body":{"sum":1990.5}})"_s;

http::Response refused(int status, const QString &errorCode)
{
    return json(status, {{u"errorCode"_s, errorCode}});
}

QString gone(const QString &label)
{
    return u"WARN HTTP %1 — сообщение будет удалено из очереди (не retry)"_s.arg(label);
}

QString kept(const QString &label, int attempt, int limit)
{
    return u"WARN HTTP %1 — сообщение останется в очереди для повтора (попытка %2/%3)"_s.arg(
        label, QString::number(attempt), QString::number(limit));
}

QString givenUp(const QString &label, int limit)
{
    return u"WARN HTTP %1 — достигнут send_limit=%2, сообщение будет удалено из очереди"_s.arg(
        label, QString::number(limit));
}

/// With a store, as the worker has one.
class Worker : public SpasiboHandler
{
public:
    Worker()
        : SpasiboHandler(u"spasibo"_s)
    {
        dao = std::make_shared<queue::DAO>();
        dao->connect();
    }
};

} // namespace

class TstSpasiboHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void request_data();
    void request();
    void invalidUrl_data();
    void invalidUrl();
    void timeout_data();
    void timeout();
    void outcome_data();
    void outcome();
    void rules_data();
    void rules();
    void attempts_data();
    void attempts();
    void attemptIsStoredBeforeTheVerdict_data();
    void attemptIsStoredBeforeTheVerdict();
    void settingsHoldFromTheConstructionOn();
    void withoutACertificate();
    void certificate_data();
    void certificate();
    void convertedCertificate();
    void unusableCertificateStopsNothing();
    void overridesSendMessageAlone();

private:
    std::unique_ptr<QueueDatabase> till;
};

void TstSpasiboHandler::init()
{
    till = std::make_unique<QueueDatabase>();
}

void TstSpasiboHandler::cleanup()
{
    till.reset();
}

void TstSpasiboHandler::request_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("spasibo") << u"spasibo"_s;
    QTest::newRow("spasiboBatch") << u"spasiboBatch"_s;
    QTest::newRow("spasiboReverse") << u"spasiboReverse"_s;
}

void TstSpasiboHandler::request()
{
    QFETCH(QString, type);
    const LogCapture log(type);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(type, ::request));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 30"_s, u"PUT https://purchase.test/v1"_s}));
    QCOMPARE(net.lastRequest().body, "{\"sum\":1990.5}");
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}}));
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TstSpasiboHandler::invalidUrl_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("absent") << u"{\"body\":\"1\"}"_s;
    QTest::newRow("empty") << u"{\"url\":\"\"}"_s;
    QTest::newRow("no number for a port") << u"{\"url\":\"http://a:b/\"}"_s;
    QTest::newRow("a list") << u"{\"url\":[\"http://a.test/\"]}"_s;
}

void TstSpasiboHandler::invalidUrl()
{
    QFETCH(QString, message);
    const LogCapture log(u"spasibo"_s);
    const FakeRestClient net;
    QVERIFY(deliver(u"spasibo"_s, message));
    QCOMPARE(net.steps(), QStringList());
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Некорректный url в сообщении очереди"_s}));
}

void TstSpasiboHandler::timeout_data()
{
    QTest::addColumn<QString>("timeout");
    QTest::addColumn<int>("seconds");
    QTest::newRow("absent") << u""_s << 45;
    QTest::newRow("7") << u",\"timeout\":7"_s << 7;
    QTest::newRow("as a text") << u",\"timeout\":\"8\""_s << 8;
    QTest::newRow("1") << u",\"timeout\":1"_s << 1;
    QTest::newRow("0") << u",\"timeout\":0"_s << 45;
    QTest::newRow("below 0") << u",\"timeout\":-5"_s << 45;
    QTest::newRow("no number") << u",\"timeout\":\"soon\""_s << 45;
}

void TstSpasiboHandler::timeout()
{
    QFETCH(QString, timeout);
    QFETCH(int, seconds);
    till->setSettings(u"[Spasibo]\ntimeout = 45\n"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"spasibo"_s, u"{\"url\":\"https://purchase.test/\"%1}"_s.arg(timeout)));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), seconds * 1000);
}

void TstSpasiboHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList none;
    const auto net = [](const http::Response &response) {
        return QStringList{u"ERROR Сетевая ошибка/таймаут при отправке: "_s
                           + response.errorText.ru()};
    };
    const http::Response cutOff = http::Response::failed(2, tr::Tr(u"оборвано %1"_s), 500);
    http::Response unsent;
    unsent.errorCode = 301;
    unsent.errorText = tr::Tr(u"нет адреса"_s);
    // clang-format off
    QTest::newRow("200")                      << reply(200, "{\"errorCode\":\"CARD_NOT_FOUND\"}") << true << none;
    QTest::newRow("204")                      << reply(204) << true << none;
    QTest::newRow("299")                      << reply(299) << true << none;
    QTest::newRow("300: not done")            << reply(300) << true << QStringList{gone(u"300"_s)};
    QTest::newRow("400")                      << reply(400) << true << QStringList{gone(u"400"_s)};
    QTest::newRow("400 with a code")          << refused(400, u"BAD %1"_s) << true << QStringList{gone(u"400 (BAD %1)"_s)};
    QTest::newRow("404 with a known code")    << refused(404, u"CARD_NOT_FOUND"_s) << true << QStringList{gone(u"404 (CARD_NOT_FOUND)"_s)};
    QTest::newRow("422 without a code")       << reply(422) << true << QStringList{gone(u"422"_s)};
    QTest::newRow("422 with another code")    << refused(422, u"OTHER"_s) << true << QStringList{gone(u"422 (OTHER)"_s)};
    QTest::newRow("422 with a number")        << json(422, {{u"errorCode"_s, 5}}) << true << QStringList{gone(u"422"_s)};
    QTest::newRow("422 IDENTITY_NOT_FOUND")   << refused(422, u"IDENTITY_NOT_FOUND"_s) << false << QStringList{kept(u"422 (IDENTITY_NOT_FOUND)"_s, 1, 20)};
    QTest::newRow("422 CARD_NOT_FOUND")       << refused(422, u"CARD_NOT_FOUND"_s) << false << QStringList{kept(u"422 (CARD_NOT_FOUND)"_s, 1, 20)};
    QTest::newRow("422 card_not_found")       << refused(422, u"card_not_found"_s) << false << QStringList{kept(u"422 (card_not_found)"_s, 1, 20)};
    QTest::newRow("422 REG_ID_IS_BUSY")       << refused(422, u"REG_ID_IS_BUSY"_s) << false << QStringList{kept(u"422 (REG_ID_IS_BUSY)"_s, 1, 20)};
    QTest::newRow("422 PURCHASE_STATUS_...")  << refused(422, u"PURCHASE_STATUS_NOT_VALID"_s) << false << QStringList{kept(u"422 (PURCHASE_STATUS_NOT_VALID)"_s, 1, 20)};
    QTest::newRow("422, blanks around JSON")  << reply(422, " \r\n{\"errorCode\":\"CARD_NOT_FOUND\"}\n ") << false << QStringList{kept(u"422 (CARD_NOT_FOUND)"_s, 1, 20)};
    QTest::newRow("422, a list of codes")     << reply(422, "[{\"errorCode\":\"CARD_NOT_FOUND\"}]") << true << QStringList{gone(u"422"_s)};
    QTest::newRow("422, JSON cut off")        << reply(422, "{\"errorCode\":\"CARD_NOT_FOUND\"") << true << QStringList{gone(u"422"_s)};
    QTest::newRow("500")                      << reply(500) << false << QStringList{kept(u"500"_s, 1, 20)};
    QTest::newRow("500 with any body")        << reply(500, "<html>") << false << QStringList{kept(u"500"_s, 1, 20)};
    QTest::newRow("500 with a code")          << refused(500, u"X"_s) << false << QStringList{kept(u"500 (X)"_s, 1, 20)};
    QTest::newRow("502")                      << reply(502) << true << QStringList{gone(u"502"_s)};
    QTest::newRow("503")                      << reply(503) << false << QStringList{kept(u"503"_s, 1, 20)};
    QTest::newRow("504")                      << reply(504) << false << QStringList{kept(u"504"_s, 1, 20)};
    QTest::newRow("no connection")            << noConnection() << false << net(noConnection());
    QTest::newRow("no answer in time")        << ::timeout() << false << net(::timeout());
    QTest::newRow("cut off behind a 500")     << cutOff << false << net(cutOff);
    QTest::newRow("an error without a status")<< unsent << false << QStringList{u"ERROR Ошибка при отправке сообщения: нет адреса"_s};
    // clang-format on
}

void TstSpasiboHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    const LogCapture log(u"spasibo"_s);
    FakeRestClient net({answer});
    QCOMPARE(deliver(u"spasibo"_s, ::request), finished);
    QCOMPARE(log.lines(), QStringList{opening} + lines);
}

void TstSpasiboHandler::rules_data()
{
    QTest::addColumn<QString>("rules");
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("isRetried");

    // clang-format off
    QTest::newRow("one status")              << u"418"_s << reply(418) << true;
    QTest::newRow("replaces the default")    << u"418"_s << reply(500) << false;
    QTest::newRow("blanks around")           << u"  418  "_s << reply(418) << true;
    QTest::newRow("blanks between")          << u"418    A"_s << refused(418, u"a"_s) << true;
    QTest::newRow("a third piece")           << u"418 A B"_s << refused(418, u"A"_s) << true;
    QTest::newRow("a third piece is no code")<< u"418 A B"_s << refused(418, u"B"_s) << false;
    QTest::newRow("a code is asked for")     << u"418 A"_s << reply(418) << false;
    QTest::newRow("no number")               << u"abc, 418"_s << reply(418) << true;
    QTest::newRow("no number, skipped")      << u"abc"_s << reply(500) << false;
    QTest::newRow("hexadecimal is no number")<< u"0x1f4"_s << reply(500) << false;
    QTest::newRow("a number and a letter")   << u"500a"_s << reply(500) << false;
    QTest::newRow("a fraction")              << u"500.0"_s << reply(500) << false;
    QTest::newRow("500 in more than 32 bits")<< u"4294967796"_s << reply(500) << false;
    QTest::newRow("a sign")                  << u"+500"_s << reply(500) << true;
    QTest::newRow("only commas")             << u",,,"_s << reply(500) << false;
    QTest::newRow("the code alone")          << u"CARD_NOT_FOUND"_s << refused(422, u"CARD_NOT_FOUND"_s) << false;
    QTest::newRow("with and without a code") << u"418 A, 418"_s << refused(418, u"B"_s) << true;
    QTest::newRow("twice")                   << u"418, 418"_s << reply(418) << true;
    // clang-format on
}

void TstSpasiboHandler::rules()
{
    QFETCH(QString, rules);
    QFETCH(http::Response, answer);
    QFETCH(bool, isRetried);

    till->setSettings(u"[Spasibo]\nrestRetryErrors = %1\n"_s.arg(rules));
    FakeRestClient net({answer});
    QCOMPARE(deliver(u"spasibo"_s, ::request), !isRetried);
}

void TstSpasiboHandler::attempts_data()
{
    QTest::addColumn<QString>("statusCode");
    QTest::addColumn<int>("limit");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("stored");

    // clang-format off
    QTest::newRow("the first one")        << u""_s << 3 << false << kept(u"500"_s, 1, 3) << u"1"_s;
    QTest::newRow("the second one")       << u"1"_s << 3 << false << kept(u"500"_s, 2, 3) << u"2"_s;
    QTest::newRow("the limit")            << u"2"_s << 3 << true << givenUp(u"500"_s, 3) << u"3"_s;
    QTest::newRow("above the limit")      << u"8"_s << 3 << true << givenUp(u"500"_s, 3) << u"9"_s;
    QTest::newRow("limit 1")              << u""_s << 1 << true << givenUp(u"500"_s, 1) << u"1"_s;
    QTest::newRow("limit 0")              << u""_s << 0 << true << givenUp(u"500"_s, 0) << u"1"_s;
    QTest::newRow("no number")            << u"soon"_s << 3 << false << kept(u"500"_s, 1, 3) << u"1"_s;
    QTest::newRow("more than 32 bits")    << u"4294967298"_s << 3 << false << kept(u"500"_s, 1, 3) << u"1"_s;
    QTest::newRow("below 0")              << u"-5"_s << 3 << false << kept(u"500"_s, -4, 3) << u"-4"_s;
    QTest::newRow("the greatest number")  << u"2147483647"_s << 3 << true << givenUp(u"500"_s, 3) << u"2147483648"_s;
    // clang-format on
}

void TstSpasiboHandler::attempts()
{
    QFETCH(QString, statusCode);
    QFETCH(int, limit);
    QFETCH(bool, finished);
    QFETCH(QString, line);
    QFETCH(QString, stored);

    till->setSettings(u"[Spasibo]\nsendLimit = %1\n"_s.arg(limit));
    Message message;
    message.id = till->put(u"spasibo"_s, ::request);
    message.statusCode = statusCode;
    message.body = {{u"url"_s, u"https://purchase.test/"_s}};
    Worker worker;
    const LogCapture log(u"spasibo"_s);
    FakeRestClient net({reply(500)});
    QCOMPARE(worker.sendMessage(message), finished);
    QCOMPARE(log.lines().value(1), line);
    QCOMPARE(till->query(u"SELECT statuscode FROM queues.message"_s).value(0).value(0).toString(),
             stored);
}

void TstSpasiboHandler::attemptIsStoredBeforeTheVerdict_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("stored");
    // A delivered message counts as well; the network costs nothing.
    QTest::newRow("200") << reply(200) << u"5"_s;
    QTest::newRow("400") << reply(400) << u"5"_s;
    QTest::newRow("500") << reply(500) << u"5"_s;
    QTest::newRow("no connection") << noConnection() << u"4"_s;
    QTest::newRow("no answer in time") << ::timeout() << u"4"_s;
    QTest::newRow("cut off behind a 500")
        << http::Response::failed(2, tr::Tr(u"оборвано"_s), 500) << u"4"_s;
}

void TstSpasiboHandler::attemptIsStoredBeforeTheVerdict()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, stored);
    Message message;
    message.id = till->put(u"spasibo"_s, ::request);
    till->query(u"UPDATE queues.message SET statuscode = '4'"_s);
    message.statusCode = u"4"_s;
    message.body = {{u"url"_s, u"https://purchase.test/"_s}};
    Worker worker;
    FakeRestClient net({answer});
    worker.sendMessage(message);
    QCOMPARE(till->query(u"SELECT statuscode FROM queues.message"_s).value(0).value(0).toString(),
             stored);
}

void TstSpasiboHandler::settingsHoldFromTheConstructionOn()
{
    till->setSettings(u"[Spasibo]\nsendLimit = 1\nrestRetryErrors = 418\n"_s);
    Worker worker;
    till->setSettings(u"[Spasibo]\nsendLimit = 9\nrestRetryErrors = 500\ntimeout = 3\n"_s);
    Message message;
    message.body = {{u"url"_s, u"https://purchase.test/"_s}};
    const LogCapture log(u"spasibo"_s);
    FakeRestClient net({reply(418)});
    QVERIFY(worker.sendMessage(message));
    QCOMPARE(log.lines().value(1), givenUp(u"418"_s, 1));
    // The timeout alone is read for each message.
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 3000);
}

void TstSpasiboHandler::withoutACertificate()
{
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"spasibo"_s,
                    u"{\"url\":\"https://purchase.test/\",\"certificatePath\":\"\","
                    "\"certificatePassword\":\"secret\",\"privateKeyPath\":\"/key.pem\"}"_s));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 30"_s, u"GET https://purchase.test/"_s}));
}

void TstSpasiboHandler::certificate_data()
{
    QTest::addColumn<QString>("path");
    // Neither is converted, and nobody looks whether it is there.
    QTest::newRow("pem") << u"/missing/till.pem"_s;
    QTest::newRow("upper case") << u"/missing/till.PFX"_s;
}

void TstSpasiboHandler::certificate()
{
    QFETCH(QString, path);
    const LogCapture log(u"spasibo"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(
        deliver(u"spasibo"_s,
                u"{\"url\":\"https://purchase.test/\",\"certificatePath\":\"%1\","
                "\"certificatePassword\":\"secret\",\"privateKeyPath\":\"/key.pem\"}"_s.arg(path)));
    QCOMPARE(net.lastRequest().certificatePath, path);
    QCOMPARE(net.lastRequest().certificatePassword, u"secret"_s);
    QCOMPARE(net.lastRequest().privateKeyPath, u"/key.pem"_s);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TstSpasiboHandler::convertedCertificate()
{
    Certificates certificates;
    const QString file =
        certificates.pkcs12(certificates.client(certificates.authority(u"authority"_s), u"till"_s),
                            u"secret"_s, u"pfx"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"spasibo"_s, u"{\"url\":\"https://purchase.test/\",\"certificatePath\":\"%1\","
                                  "\"certificatePassword\":\"secret\"}"_s.arg(file)));
    QFile source(file);
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QByteArray digest =
        QCryptographicHash::hash(source.readAll(), QCryptographicHash::Sha256).toHex();
    QCOMPARE(net.lastRequest().certificatePath,
             u"%1%2/spasibo-certs/%3.pem"_s.arg(till->root(), QDir::tempPath(),
                                                QString::fromLatin1(digest)));
    QVERIFY(QFile::exists(net.lastRequest().certificatePath));
}

void TstSpasiboHandler::unusableCertificateStopsNothing()
{
    const LogCapture log(u"spasibo"_s);
    FakeRestClient net({reply(400)});
    QVERIFY(deliver(u"spasibo"_s,
                    u"{\"url\":\"https://purchase.test/\",\"certificatePath\":\"/missing.p12\","
                    "\"certificatePassword\":\"secret\",\"privateKeyPath\":\"/key.pem\"}"_s));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeout 30"_s, u"setCertificatePath "_s,
                          u"setCertificatePassword secret"_s, u"setPrivateKeyPath /key.pem"_s,
                          u"GET https://purchase.test/"_s}));
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Ошибка чтения сертификата /missing.p12"_s,
                                       gone(u"400"_s)}));
}

void TstSpasiboHandler::overridesSendMessageAlone()
{
    QCOMPARE(slotOf(&SpasiboHandler::sendMessage), 5);
}

QTEST_GUILESS_MAIN(TstSpasiboHandler)
#include "tst_spasibohandler.moc"
