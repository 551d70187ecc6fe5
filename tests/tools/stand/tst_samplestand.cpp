#include "tools/stand/samplestand.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/serviceprocess.h"
#include "tools/stand/waiting.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace stand;

/// The demo with the real service, below a folder of its own.
class TestSampleStand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void deliversSamples();
    void tellsWhatWasNotDelivered();
    void settingsComeFirst();
    void contradictingSettings();
    void nothingToShow();

private:
    void writeFile(const QString &path, const QByteArray &content);
    /// A file with one sample of the type.
    void writeSample(const QString &type, const QByteArray &more = {});
    bool show();
    QByteArray result() const;

    std::unique_ptr<QTemporaryDir> folder;
    QString root;
    QString scenarios;
};

void TestSampleStand::init()
{
    folder = std::make_unique<QTemporaryDir>();
    root = folder->filePath(u"root"_s);
    scenarios = folder->filePath(u"scenarios"_s);
    const PortReservation port;
    writeFile(root + u"/tallocash/cash/conf/00.ini"_s,
              "[queue]\ntimeout = 1\nport = " + QByteArray::number(port.port()) + "\n");
    QDir().mkpath(root + u"/tallocash/cash/queue"_s);
    QDir().mkpath(root + u"/tmp"_s);
}

void TestSampleStand::writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) < 0)
        qFatal("%s", qPrintable(file.errorString()));
}

void TestSampleStand::writeSample(const QString &type, const QByteArray &more)
{
    const QByteArray message = R"("message": {"type": ")" + type.toUtf8()
                               + R"(", "body": {"url": "{{http}}/a", "body": "1"}})";
    writeFile(u"%1/%2.json"_s.arg(scenarios, type),
              R"({"scenarios": [{"name": "told, but no sample"},
                 {"name": "n", "sample": true, )"
                  + message + more + R"(, "exchange": {"request": "POST /a", "body": "1"}}]})");
}

bool TestSampleStand::show()
{
    SampleStand(root, scenarios).writeSettings();
    ServiceProcess service(qEnvironmentVariable("QUEUE_PROGRAM", QStringLiteral(QUEUE_PROGRAM)),
                           root, {});
    service.start();
    const bool isDelivered = SampleStand(root, scenarios).run();
    service.terminate();
    if (!waitUntil([&] { return service.hasEnded(); }) || !service.endFault().isEmpty())
        qFatal("%s\n%s", qPrintable(service.endFault()), qPrintable(service.logText()));
    return isDelivered;
}

QByteArray TestSampleStand::result() const
{
    QFile file(root + u"/stand-result.txt"_s);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no result");
}

void TestSampleStand::deliversSamples()
{
    writeSample(u"heineken"_s);
    writeSample(u"smartscales"_s, R"(, "settings": {"x": {"peer": "{{http}}"}})");
    QVERIFY(show());
    QFile settings(root + u"/tallocash/cash/conf/10-stand.ini"_s);
    QVERIFY(settings.open(QIODevice::ReadOnly));
    QVERIFY(settings.readAll().contains("[x]\npeer = http://127.0.0.1:"));
    QVERIFY2(result().contains(": 2 "), result());
}

void TestSampleStand::tellsWhatWasNotDelivered()
{
    writeSample(u"heineken"_s);
    writeSample(u"cardlab"_s); // puts, and the sample tells of a POST
    QVERIFY(!show());
    QVERIFY2(result().contains(": 1 "), result());
}

void TestSampleStand::settingsComeFirst()
{
    writeSample(u"heineken"_s);
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios).run());
}

void TestSampleStand::contradictingSettings()
{
    writeSample(u"heineken"_s, R"(, "settings": {"x": {"a": 1}})");
    writeSample(u"smartscales"_s, R"(, "settings": {"x": {"a": 2}})");
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios).writeSettings());
}

void TestSampleStand::nothingToShow()
{
    writeFile(scenarios + u"/a.json"_s, R"({"scenarios": [{"name": "n"}]})");
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios));
}

QTEST_GUILESS_MAIN(TestSampleStand)
#include "tst_samplestand.moc"
