#include "tests/tools/queuectl/promtool.h"
#include "tests/tools/queuectl/till.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QString folder = QStringLiteral(FLEET_DIR);

QByteArray content(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return file.readAll();
}

} // namespace

/// What the tools of a fleet are given: alerts, dashboard, and the writer of the file.
class TestFleet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void namesAreThoseOfTheMetrics_data();
    void namesAreThoseOfTheMetrics();
    void dashboardPanels();
    void alertsDoWhatTheySay();
    void writerReplacesTheFile();
    void writerKeepsTheFormerFile_data();
    void writerKeepsTheFormerFile();

private:
    static int write(const QString &target, const QString &program);

    std::unique_ptr<Till> till;
};

void TestFleet::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
}

void TestFleet::namesAreThoseOfTheMetrics_data()
{
    QTest::addColumn<QString>("file");
    for (const char *file : {"alerts.yml", "alerts-test.yml", "dashboard.json"})
        QTest::newRow(file) << QString::fromLatin1(file);
}

void TestFleet::namesAreThoseOfTheMetrics()
{
    QFETCH(QString, file);
    QSet<QString> known;
    const QJsonArray metrics =
        till->run({u"metrics"_s, u"--json"_s}).json().value(u"metrics"_s).toArray();
    for (const QJsonValue &metric : metrics)
        known.insert(metric[u"name"_s].toString());
    QVERIFY(known.size() > 10);
    static const QRegularExpression name(u"\\bqueue_[a-z_]+"_s);
    auto found = name.globalMatch(QString::fromUtf8(content(folder + u'/' + file)));
    QSet<QString> used;
    while (found.hasNext())
        used.insert(found.next().captured());
    QVERIFY(used.size() > 5);
    QCOMPARE(used - known, QSet<QString>());
}

void TestFleet::dashboardPanels()
{
    const QJsonObject dashboard =
        QJsonDocument::fromJson(content(folder + u"/dashboard.json"_s)).object();
    QVERIFY(dashboard.value(u"id"_s).isNull());
    const QString input = dashboard[u"__inputs"_s][0][u"name"_s].toString();
    const QJsonArray panels = dashboard.value(u"panels"_s).toArray();
    QVERIFY(!panels.isEmpty());
    QSet<int> ids;
    for (const QJsonValue &panel : panels) {
        ids.insert(panel[u"id"_s].toInt());
        QCOMPARE(panel[u"datasource"_s][u"uid"_s].toString(), u"${%1}"_s.arg(input));
        QVERIFY(!panel[u"title"_s].toString().isEmpty());
        QVERIFY(!panel[u"targets"_s][0][u"expr"_s].toString().isEmpty());
        QVERIFY(panel[u"gridPos"_s][u"x"_s].toInt() + panel[u"gridPos"_s][u"w"_s].toInt() <= 24);
    }
    QCOMPARE(ids.size(), panels.size());
}

void TestFleet::alertsDoWhatTheySay()
{
    if (promtool::path().isEmpty())
        QSKIP("promtool is not installed (scripts/install-packages packages-fleet)");
    QCOMPARE(promtool::complaint({u"check"_s, u"rules"_s, u"alerts.yml"_s}, {}, folder), QString());
    const QStringList test{u"test"_s, u"rules"_s, u"alerts-test.yml"_s};
    QCOMPARE(promtool::complaint(test, {}, folder), QString());
    // Other limits are noticed.
    QTemporaryDir changed;
    QVERIFY(QFile::copy(folder + u"/alerts-test.yml"_s, changed.filePath(u"alerts-test.yml"_s)));
    QFile alerts(changed.filePath(u"alerts.yml"_s));
    QVERIFY(alerts.open(QIODevice::WriteOnly));
    alerts.write(content(folder + u"/alerts.yml"_s).replace("> 3600", "> 3700"));
    alerts.close();
    QVERIFY(!promtool::complaint(test, {}, changed.path()).isEmpty());
}

int TestFleet::write(const QString &target, const QString &program)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"QUEUECTL"_s, program);
    process.setProcessEnvironment(environment);
    process.start(folder + u"/write-metrics"_s, {target});
    if (!process.waitForFinished(60'000))
        qFatal("write-metrics: %s", qPrintable(process.errorString()));
    return process.exitCode();
}

/// Although the service is silent here, which the text says.
void TestFleet::writerReplacesTheFile()
{
    till->database.ids();
    QTemporaryDir target;
    const QString file = target.filePath(u"queue.prom"_s);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(write(target.path(), QStringLiteral(QUEUECTL_PROGRAM)), 0);
        QVERIFY(content(file).contains("\nqueue_up 0\n"));
        QVERIFY(QFile::permissions(file).testFlag(QFile::ReadOther));
        QCOMPARE(QDir(target.path()).entryList(QDir::Files), QStringList{u"queue.prom"_s});
    }
}

void TestFleet::writerKeepsTheFormerFile_data()
{
    QTest::addColumn<QByteArray>("program");
    QTest::newRow("it fails") << QByteArray("echo queue_build_info; exit 7");
    QTest::newRow("it crashes") << QByteArray("echo queue_build_info; kill -SEGV $$");
    QTest::newRow("the text is cut off") << QByteArray("echo queue_up 1");
}

void TestFleet::writerKeepsTheFormerFile()
{
    QFETCH(QByteArray, program);
    const QString script = till->write(u"/queuectl"_s, "#!/bin/sh\n" + program + '\n');
    QVERIFY(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
    QTemporaryDir target;
    QFile former(target.filePath(u"queue.prom"_s));
    QVERIFY(former.open(QIODevice::WriteOnly));
    former.write("former\n");
    former.close();
    QVERIFY(write(target.path(), script) != 0);
    QCOMPARE(content(former.fileName()), QByteArray("former\n"));
    QCOMPARE(QDir(target.path()).entryList(QDir::Files), QStringList{u"queue.prom"_s});
}

QTEST_GUILESS_MAIN(TestFleet)
#include "tst_fleet.moc"
