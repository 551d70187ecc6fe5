#include "shared/net/connections.h"
#include "shared/net/exchange.h"
#include "tests/support/realfunction.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

/// The argument with which the test calls its own program.
constexpr const char *withoutLibrary = "without-library";

bool isLibraryUsable = true;

/// The message handler ends the program in an orderly way, which keeps its counts of covered lines.
int askWithoutLibrary()
{
    isLibraryUsable = false;
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        fprintf(stderr, "%s\n", qPrintable(text));
        if (type == QtFatalMsg)
            std::exit(3);
    });
    curl::connectionsOfThread().clientFor({});
    return 0;
}

} // namespace

// The part of libcurl in this test: the program's own function is found before that of the library.
extern "C" CURLcode curl_global_init(long flags)
{
    if (!isLibraryUsable)
        return CURLE_FAILED_INIT;
    using Function = CURLcode(long);
    static const auto next = realFunction<Function>("curl_global_init");
    return next(flags);
}

class TestConnections : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryThatDoesNotStart();
    void clientsByCertificate();
    void setupsThatDiffer();
};

/// Without it nothing is delivered, so the service ends with a word instead of losing each request.
void TestConnections::libraryThatDoesNotStart()
{
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(withoutLibrary)});
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitCode(), 3);
    QVERIFY(program.readAllStandardError().contains("libcurl cannot be used: "));
}

/// A connection that was opened with a certificate serves requests with that certificate alone.
void TestConnections::clientsByCertificate()
{
    Exchange plain;
    plain.url = QUrl(u"http://service.test/"_s);
    Exchange certified;
    certified.url = QUrl(u"https://service.test/"_s);
    certified.certificatePath = u"/nowhere/till.pem"_s;
    Exchange unsecured = certified;
    unsecured.url = plain.url;

    curl::Connections &connections = curl::connectionsOfThread();
    curl::Client &common = connections.clientFor(plain);
    curl::Client &own = connections.clientFor(certified);
    QVERIFY(common.handle != nullptr && own.handle != nullptr);
    QVERIFY(&common != &own);
    QCOMPARE(&connections.clientFor(unsecured), &common);

    own.url = certified.url;
    QCOMPARE(connections.clientFor(certified).url, certified.url);
    // With another password it is another certificate, and nothing is left of the former.
    certified.certificatePassword = u"secret"_s;
    QCOMPARE(connections.clientFor(certified).url, QUrl());
}

/// A handle is set up again when any of these has changed.
void TestConnections::setupsThatDiffer()
{
    const curl::Setup setup{true, u"proxy.test:3128"_s, u"service.test"_s, u"/etc/ca.pem"_s};
    QVERIFY(setup == curl::Setup(setup));
    curl::Setup other = setup;
    other.isSecure = false;
    QVERIFY(other != setup);
    other = setup;
    other.proxy.clear();
    QVERIFY(other != setup);
    other = setup;
    other.noProxy.clear();
    QVERIFY(other != setup);
    other = setup;
    other.caFile.clear();
    QVERIFY(other != setup);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], withoutLibrary) == 0)
        return askWithoutLibrary();
    TestConnections test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_connections.moc"
