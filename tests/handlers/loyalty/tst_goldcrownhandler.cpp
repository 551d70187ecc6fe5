#include "handlers/loyalty/goldcrownhandler.h"
#include "rig/certificates.h"
#include "rig/nginxserver.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"
#include "tests/support/vtable.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

using namespace Qt::StringLiterals;
using rig::Certificates;
using rig::NginxServer;

namespace {

const QByteArray done = "<r><status><code>0</code></status></r>";
const QString opening = u"INFO Отправка сообщения 7"_s;
const QString noStatus = u"WARN Некорректный ответ от сервера, отсутствует поле status"_s;
const QString noCode = u"WARN Некорректный ответ от сервера, отсутствует поле code"_s;
const QString noPem = u"ERROR Ошибка генерации сертификата"_s;

QString message(const QString &path, const QString &password = u"secret"_s,
                const QString &url = u"https://crown.test/a b"_s)
{
    return uR"({"url":"%1","headers":{"X-Till":3},"body":"<к/>","timeout":99,"certificatePath":"%2","certificatePassword":"%3"})"_s
        .arg(url, path, password);
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Treats some failures as final.
class Lenient : public GoldCrownHandler
{
public:
    explicit Lenient(const QList<int> &codes)
        : GoldCrownHandler(u"goldcrown"_s)
    {
        allowedErrors = codes;
    }
    void onAllowedError(const QString &description) override { descriptions.append(description); }

    QStringList descriptions;
};

} // namespace

class TestGoldCrownHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void request_data();
    void request();
    void failedExchange_data();
    void failedExchange();
    void noCertificate_data();
    void noCertificate();
    void convertsOnce();
    void serviceAsksForTheCertificate_data();
    void serviceAsksForTheCertificate();
    void judgement_data();
    void judgement();
    void windows1251();
    void allowedErrors_data();
    void allowedErrors();
    void noErrorIsAllowedByDefault();
    void operationsKeepTheirPlaces();

private:
    int runsOfTheTool() const;

    Certificates certificates;
    Certificates::Identity authority;
    QString source;
    QString otherSource;
    QByteArray formerPath;
    /// Holds the converted files; a script on PATH counts the calls and runs the real tool.
    std::unique_ptr<QTemporaryDir> folder;
};

void TestGoldCrownHandler::initTestCase()
{
    authority = certificates.authority(u"authority"_s);
    source = certificates.pkcs12(certificates.client(authority, u"till"_s), u"secret"_s);
    otherSource = certificates.pkcs12(certificates.client(authority, u"other"_s), u"secret"_s);
    formerPath = qgetenv("PATH");
}

void TestGoldCrownHandler::init()
{
    folder = std::make_unique<QTemporaryDir>();
    qputenv("QUEUE_ROOT", folder->path().toUtf8());
    QVERIFY(QDir(folder->path()).mkpath(u"tmp"_s) && QDir(folder->path()).mkpath(u"bin"_s));
    QFile script(folder->filePath(u"bin/openssl"_s));
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho run >>'" + folder->path().toUtf8() + "/runs'\nexec '"
                 + QStandardPaths::findExecutable(u"openssl"_s).toUtf8() + "' \"$@\"\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", folder->filePath(u"bin"_s).toUtf8() + ':' + formerPath);
}

void TestGoldCrownHandler::cleanup()
{
    qputenv("PATH", formerPath);
    qunsetenv("QUEUE_ROOT");
}

int TestGoldCrownHandler::runsOfTheTool() const
{
    return static_cast<int>(read(folder->filePath(u"runs"_s)).count("run"));
}

void TestGoldCrownHandler::request_data()
{
    QTest::addColumn<QString>("type");
    for (const char *type : {"goldcrown", "spasiboBatch", "spasiboReverse"})
        QTest::newRow(type) << QString::fromLatin1(type);
}

void TestGoldCrownHandler::request()
{
    QFETCH(QString, type);
    const LogCapture log(type);
    FakeRestClient net({reply(200, done)});
    QVERIFY(deliver(type, message(source)));

    const QString pem = folder->path() + u"/tmp/queue_spasibo_"_s
                        + QString::fromLatin1(
                            QCryptographicHash::hash(read(source), QCryptographicHash::Md5).toHex())
                        + u".pem"_s;
    QVERIFY(QFile::exists(pem));
    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(made.settings.size(), 3);
    QCOMPARE(net.steps().first(), u"setTimeout 10"_s);
    QVERIFY(made.settings[1].startsWith(u"setCertificatePath"_s));
    QVERIFY(made.settings[2].startsWith(u"setCertificatePassword"_s));
    QCOMPARE(net.transcript(), QStringList{u"POST https://crown.test/a%20b"_s});
    QCOMPARE(made.certificatePath, pem);
    QCOMPARE(made.certificatePassword, u"secret"_s);
    QCOMPARE(made.privateKeyPath, QString());
    QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}}));
    QCOMPARE(made.body, "<к/>");
    QVERIFY(made.logger);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestGoldCrownHandler::failedExchange_data()
{
    addLostExchanges();
    QTest::newRow("HTTP 500 with code 0") << reply(500, done);
    QTest::newRow("HTTP 302 with code 0") << reply(302, done);
}

void TestGoldCrownHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    compareOutcome(u"goldcrown"_s, message(source), answer, false,
                   QStringList{opening, failureLine(answer)});
}

void TestGoldCrownHandler::noCertificate_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("line");
    const QString unreadable = u"ERROR Ошибка чтения сертификата "_s;
    QTest::newRow("no path") << QString() << u"secret"_s << unreadable;
    QTest::newRow("missing") << u"/no/%1.p12"_s << u"secret"_s << unreadable + u"/no/%1.p12"_s;
    QTest::newRow("a folder") << u"/tmp"_s << u"secret"_s << unreadable + u"/tmp"_s;
    QTest::newRow("wrong password") << source << u"wrong"_s << noPem;
    QTest::newRow("no password") << source << QString() << noPem;
}

void TestGoldCrownHandler::noCertificate()
{
    QFETCH(QString, path);
    QFETCH(QString, password);
    QFETCH(QString, line);
    const LogCapture log(u"goldcrown"_s);
    FakeRestClient net;
    QVERIFY(!deliver(u"goldcrown"_s, message(path, password)));
    QCOMPARE(net.steps(), QStringList{u"setTimeout 10"_s});
    QCOMPARE(log.lines(), (QStringList{opening, line}));
}

void TestGoldCrownHandler::convertsOnce()
{
    FakeRestClient net({reply(200, done)});
    QVERIFY(deliver(u"goldcrown"_s, message(source)));
    const QString first = net.lastRequest().certificatePath;
    QCOMPARE(runsOfTheTool(), 1);

    // The tool is not run again, so the password is not checked here.
    net.nextDelivery();
    net.play({reply(200, done)});
    QVERIFY(deliver(u"goldcrown"_s, message(source, u"wrong"_s)));
    QCOMPARE(net.lastRequest().certificatePath, first);
    QCOMPARE(net.lastRequest().certificatePassword, u"wrong"_s);
    QCOMPARE(runsOfTheTool(), 1);

    // Another certificate at the same path.
    const QString place = folder->filePath(u"till.p12"_s);
    QVERIFY(QFile::copy(otherSource, place));
    net.nextDelivery();
    net.play({reply(200, done)});
    QVERIFY(deliver(u"goldcrown"_s, message(place)));
    QVERIFY(net.lastRequest().certificatePath != first);
    QCOMPARE(runsOfTheTool(), 2);
}

void TestGoldCrownHandler::serviceAsksForTheCertificate_data()
{
    QTest::addColumn<bool>("known");
    QTest::newRow("the service knows the till's authority") << true;
    QTest::newRow("another authority's") << false;
}

void TestGoldCrownHandler::serviceAsksForTheCertificate()
{
    QFETCH(bool, known);
    const NginxServer nginx(NginxServer::Setup{
        certificates.server(authority, {u"IP:127.0.0.1"_s}),
        known ? authority.certificate : certificates.authority(u"other"_s).certificate});
    const TestSettings settings(u"[network]\ncaFile = %1\n"_s.arg(authority.certificate));
    const LogCapture log(u"goldcrown"_s);
    // It answers with a line that is not XML, so the message stays in any case.
    QVERIFY(!deliver(u"goldcrown"_s, message(source, u"secret"_s, nginx.url().toString())));
    QStringList lines = log.lines();
    lines.removeIf([](const QString &line) { return line.startsWith(u"DEBUG"_s); });
    QCOMPARE(lines,
             (QStringList{opening,
                          known ? noStatus
                                : u"ERROR Ошибка при отправке сообщения: Сервер ответил ошибкой, "
                                  "код состояния HTTP 400"_s}));
}

void TestGoldCrownHandler::judgement_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const auto code = [](int value) {
        return u"WARN Код ошибки: %1"_s.arg(value);
    };
    const QStringList none;
    // clang-format off
    QTest::newRow("done")                        << done << true << none;
    QTest::newRow("status is the root")          << "<status><code>0</code></status>"_ba << true << none;
    QTest::newRow("deep inside")                 << "<a><b><status><c><code>0</code></c></status></b></a>"_ba << true << none;
    QTest::newRow("blanks around the code")      << "<r><status><code>\n 7 </code></status></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("not a number")                << "<r><status><code>abc</code></status></r>"_ba << true << none;
    QTest::newRow("empty code")                  << "<r><status><code/></status></r>"_ba << true << none;
    QTest::newRow("fraction")                    << "<r><status><code>7.5</code></status></r>"_ba << true << none;
    QTest::newRow("hexadecimal")                 << "<r><status><code>0x7</code></status></r>"_ba << true << none;
    QTest::newRow("more than 32 bits")           << "<r><status><code>4294967303</code></status></r>"_ba << true << none;
    QTest::newRow("largest number")              << "<r><status><code>2147483647</code></status></r>"_ba << false << QStringList{code(2147483647)};
    QTest::newRow("negative code")               << "<r><status><code>-7</code></status></r>"_ba << false << QStringList{code(-7)};
    QTest::newRow("a reason")                    << "<r><status><code>7</code><description>нет %1</description></status></r>"_ba << false << QStringList{code(7), u"WARN Сообщение об ошибке: нет %1"_s};
    QTest::newRow("an empty reason")             << "<r><status><code>7</code><description/></status></r>"_ba << false << QStringList{code(7), u"WARN Сообщение об ошибке: "_s};
    QTest::newRow("the first reason")            << "<r><status><code>7</code><description>a</description><description>b</description></status></r>"_ba << false << QStringList{code(7), u"WARN Сообщение об ошибке: a"_s};
    QTest::newRow("no reason")                   << "<r><status><code>7</code></status></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("a reason outside")            << "<r><status><code>7</code></status><description>a</description></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("the first code")              << "<r><status><code>7</code><code>0</code></status></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("the first status")            << "<r><status><code>7</code></status><status><code>0</code></status></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("the second status has it")    << "<r><status/><status><code>0</code></status></r>"_ba << false << QStringList{noCode};
    QTest::newRow("a code outside")              << "<r><code>0</code><status/></r>"_ba << false << QStringList{noCode};
    QTest::newRow("another case")                << "<r><Status><code>0</code></Status></r>"_ba << false << QStringList{noStatus};
    QTest::newRow("a namespace")                 << "<r xmlns='urn:r'><status><code>0</code></status></r>"_ba << true << none;
    QTest::newRow("a prefix")                    << "<x:r xmlns:x='urn:r'><x:status><x:code>0</x:code></x:status></x:r>"_ba << false << QStringList{noStatus};
    QTest::newRow("empty")                       << ""_ba << false << QStringList{noStatus};
    QTest::newRow("not XML")                     << "0"_ba << false << QStringList{noStatus};
    QTest::newRow("truncated")                   << "<r><status><code>0</code></status>"_ba << false << QStringList{noStatus};
    QTest::newRow("a document type")             << "<!DOCTYPE r><r><status><code>7</code></status></r>"_ba << false << QStringList{code(7)};
    QTest::newRow("an entity")                   << "<!DOCTYPE r [<!ENTITY a '0'>]><r><status><code>&a;</code></status></r>"_ba << false << QStringList{noStatus};
    QTest::newRow("entities of entities")        << "<!DOCTYPE r [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;'><!ENTITY c '&b;&b;&b;&b;&b;&b;'>]><r><status><code>&c;</code></status></r>"_ba << false << QStringList{noStatus};
    QTest::newRow("an entity in a file")         << "<!DOCTYPE r [<!ENTITY a SYSTEM 'file:///etc/hostname'>]><r><status><code>7</code><description>&a;</description></status></r>"_ba << false << QStringList{noStatus};
    // clang-format on
}

void TestGoldCrownHandler::judgement()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    const LogCapture log(u"goldcrown"_s);
    QCOMPARE(GoldCrownHandler(u"goldcrown"_s).parseReply(reply), finished);
    QCOMPARE(log.lines(), lines);
}

void TestGoldCrownHandler::windows1251()
{
    const QByteArray bytes = QTextCodec::codecForName("windows-1251")
                                 ->fromUnicode(u"<?xml version='1.0' encoding='windows-1251'?>"
                                               "<r><status><code>7</code><description>Карта "
                                               "заблокирована</description></status></r>"_s);
    const LogCapture log(u"goldcrown"_s);
    QVERIFY(!GoldCrownHandler(u"goldcrown"_s).parseReply(bytes));
    QCOMPARE(log.lines(), (QStringList{u"WARN Код ошибки: 7"_s,
                                       u"WARN Сообщение об ошибке: Карта заблокирована"_s}));
}

void TestGoldCrownHandler::allowedErrors_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("descriptions");
    QTest::addColumn<QStringList>("lines");

    const QString allowed =
        u"WARN Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s;
    // clang-format off
    QTest::newRow("allowed")
        << "<r><status><code>7</code><description>a</description></status></r>"_ba << true << QStringList{u"a"_s}
        << QStringList{allowed, u"WARN Код ошибки: 7"_s, u"WARN Сообщение об ошибке: a"_s};
    QTest::newRow("allowed, without a reason")
        << "<r><status><code>9</code></status></r>"_ba << true << QStringList{QString()}
        << QStringList{allowed, u"WARN Код ошибки: 9"_s};
    QTest::newRow("another code")
        << "<r><status><code>8</code></status></r>"_ba << false << QStringList{}
        << QStringList{u"WARN Код ошибки: 8"_s};
    QTest::newRow("success") << done << true << QStringList{} << QStringList{};
    // clang-format on
}

void TestGoldCrownHandler::allowedErrors()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QStringList, descriptions);
    QFETCH(QStringList, lines);
    const LogCapture log(u"goldcrown"_s);
    Lenient handler({7, 9});
    QCOMPARE(handler.parseReply(reply), finished);
    QCOMPARE(handler.descriptions, descriptions);
    QCOMPARE(log.lines(), lines);
}

void TestGoldCrownHandler::noErrorIsAllowedByDefault()
{
    struct Look : GoldCrownHandler
    {
        Look()
            : GoldCrownHandler(u"goldcrown"_s)
        {
        }
        QList<int> codes() const { return allowedErrors; }
    };
    QCOMPARE(Look().codes(), QList<int>());
}

void TestGoldCrownHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&GoldCrownHandler::sendMessage), 5);
    QCOMPARE(slotOf(&GoldCrownHandler::parseReply), 9);
    QCOMPARE(slotOf(&GoldCrownHandler::onAllowedError), 10);
    QCOMPARE(slotOf(&GoldCrownHandler::prepareCertificate), 11);
}

QTEST_GUILESS_MAIN(TestGoldCrownHandler)
#include "tst_goldcrownhandler.moc"
