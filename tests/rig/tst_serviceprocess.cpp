#include "rig/serviceprocess.h"
#include "rig/till.h"
#include "rig/waiting.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

/// How the output of a service is read, with a shell script instead of the service.
class TestServiceProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void records();
    void eventsOfTheLibrary_data();
    void eventsOfTheLibrary();

private:
    struct Result
    {
        QStringList lines;
        QString errors;
    };
    static Result run(const QByteArray &output, const QByteArray &errors);
};

TestServiceProcess::Result TestServiceProcess::run(const QByteArray &output,
                                                   const QByteArray &errors)
{
    const rig::Till till;
    QFile script(till.path(u"/service"_s));
    if (!script.open(QIODevice::WriteOnly)
        || script.write("#!/bin/sh\ncat <<'END'\n" + output + "END\ncat >&2 <<'END'\n" + errors
                        + "END\n")
               < 0)
        qFatal("%s", qPrintable(script.errorString()));
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    script.close();
    rig::ServiceProcess service(script.fileName(), till);
    service.start();
    if (!rig::waitUntil([&] { return service.hasEnded(); }))
        qFatal("the script does not end");
    Result result;
    for (const rig::LogRecord &record : service.log().records())
        result.lines.append(record.line());
    result.errors = service.errors();
    return result;
}

void TestServiceProcess::records()
{
    const Result result = run("2026-01-31 12:00:00,123 INFO  [cardlab] one\n"
                              "    two\n"
                              "three\n"
                              "2026-01-31 12:00:00,124 ERROR [queue] three :: DEBUG ::four\n",
                              "a message\nERROR of a library: std::exception\n");
    QCOMPARE(result.lines, (QStringList{u"INFO [cardlab] one\ntwo\nthree"_s,
                                        u"ERROR [queue] three :: DEBUG ::four"_s}));
    QCOMPARE(result.errors, u"a message\nERROR of a library: std::exception\n"_s);
}

void TestServiceProcess::eventsOfTheLibrary_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::newRow("in the layout of the settings")
        << QByteArray("2026-01-31 12:00:00,124 DEBUG [::LoggerRepository] Shutting down Hierarchy");
    QTest::newRow("as an error") << QByteArray(
        "2026-01-31 12:00:00,124 ERROR [::Appender] Closed already");
    QTest::newRow("without a time")
        << QByteArray(" DEBUG [::LoggerRepository] Shutting down Hierarchy");
    QTest::newRow("in another layout")
        << QByteArray("17 [main] DEBUG ::LoggerRepository  - Shutting down Hierarchy");
}

void TestServiceProcess::eventsOfTheLibrary()
{
    QFETCH(const QByteArray, event);
    const QByteArray before = "2026-01-31 12:00:00,123 WARN  [queue] stop\n";
    const Result result = run(before + event + '\n', event + '\n');
    QCOMPARE(result.lines, QStringList{u"WARN [queue] stop"_s});
    QCOMPARE(result.errors, QString());
}

QTEST_GUILESS_MAIN(TestServiceProcess)
#include "tst_serviceprocess.moc"
