#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/promtool.h"
#include "tests/tools/queuectl/till.h"

#include "handlers/handlertable.h"
#include "rig/loopbackserver.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/metrics.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\",\"body\":\"1\"}"_s;

Metric gauge(const QList<Sample> &samples)
{
    return {u"queue_x"_s, Metric::Kind::Gauge, u"What it is."_s, samples};
}

void putTotal(JournalFixture &journal, const QString &type, const QString &verdict,
              const QString &kind, int count)
{
    journal.run(u"INSERT INTO total (type, verdict, kind, count) VALUES (?, ?, ?, ?)"_s,
                {type, verdict, kind, count});
}

} // namespace

/// The figures for Prometheus.
class TestMetrics : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void labelValues_data();
    void labelValues();
    void seriesAppearOnce();
    void countersInBothForms();
    void emptyTill();
    void valuesOfATill();
    void requeuedRowIsTheOldest();
    void typesOfTheTableAreNoLabels();
    void certificates();
    void sourcesThatAreSilent_data();
    void sourcesThatAreSilent();
    void serviceAnswers();
    void plansReadIndexes();
    void promtoolAgrees();

private:
    /// The value of the series, as it is printed; empty when there is none.
    static QString value(const QString &text, const QString &series);
    static qint64 number(const QString &text, const QString &series)
    {
        bool isNumber = false;
        const qint64 result = value(text, series).toLongLong(&isNumber);
        return isNumber ? result : -1;
    }

    std::unique_ptr<Till> till;
};

void TestMetrics::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
}

QString TestMetrics::value(const QString &text, const QString &series)
{
    const QStringList lines = text.split(u'\n');
    for (const QString &line : lines) {
        if (line.startsWith(series + u' '))
            return line.mid(series.size() + 1);
    }
    return {};
}

void TestMetrics::labelValues_data()
{
    QTest::addColumn<QString>("raw");
    QTest::addColumn<QString>("printed");
    QTest::newRow("plain") << u"till.p12"_s << u"till.p12"_s;
    QTest::newRow("Russian") << u"касса.p12"_s << u"касса.p12"_s;
    QTest::newRow("a quote ends no value") << u"a\"} 1"_s << u"a\\\"} 1"_s;
    QTest::newRow("a backslash") << u"a\\"_s << u"a\\\\"_s;
    QTest::newRow("a line end begins no line") << u"a\nqueue_up 0"_s << u"a\\\\x0aqueue_up 0"_s;
    QTest::newRow("a terminal's command") << u"a\u001b[2J"_s << u"a\\\\x1b[2J"_s;
    QTest::newRow("a long one is cut") << QString(101, u'a') << QString(99, u'a') + QChar(0x2026);
}

void TestMetrics::labelValues()
{
    QFETCH(QString, raw);
    QFETCH(QString, printed);
    const QString text = metricsText({gauge({{{{u"file"_s, raw}}, 7}})}, Exposition::Text);
    QCOMPARE(text,
             u"# HELP queue_x What it is.\n# TYPE queue_x gauge\nqueue_x{file=\"%1\"} 7\n"_s.arg(
                 printed));
}

void TestMetrics::seriesAppearOnce()
{
    const QString longName(200, u'a');
    const QString text = metricsText(
        {gauge({{{{u"file"_s, longName + u'1'}}, 1}, {{{u"file"_s, longName + u'2'}}, 2}}),
         {u"queue_none"_s, Metric::Kind::Gauge, u"No samples."_s, {}}},
        Exposition::Text);
    QCOMPARE(text.count(u"queue_x{"_s), 1);
    QVERIFY2(!text.contains(u"queue_none"_s), qPrintable(text));
}

void TestMetrics::countersInBothForms()
{
    const Metric counter{u"queue_done_total"_s, Metric::Kind::Counter, u"Done."_s, {{{}, 3}}};
    QCOMPARE(
        metricsText({counter}, Exposition::Text),
        u"# HELP queue_done_total Done.\n# TYPE queue_done_total counter\nqueue_done_total 3\n"_s);
    QCOMPARE(metricsText({counter}, Exposition::OpenMetrics),
             u"# HELP queue_done Done.\n# TYPE queue_done counter\nqueue_done_total 3\n# EOF\n"_s);
}

void TestMetrics::emptyTill()
{
    till->setSettings(u"[journal]\nenabled = false\n"_s);
    till->database.ids();
    const CommandResult result = till->run({u"metrics"_s});
    QCOMPARE(result.exitCode, ExitCode::NoService);
    QCOMPARE(result.err, QString());
    QCOMPARE(value(result.out, u"queue_up"_s), u"0"_s);
    QCOMPARE(value(result.out, u"queue_database_up"_s), u"1"_s);
    QCOMPARE(value(result.out, u"queue_journal_up"_s), u"0"_s);
    QCOMPARE(value(result.out, u"queue_messages_undeliverable"_s), u"0"_s);
    const QString version = till->run({u"--version"_s}).out.trimmed().section(u' ', 1);
    QCOMPARE(value(result.out, u"queue_build_info{version=\"%1\"}"_s.arg(version)), u"1"_s);
}

void TestMetrics::valuesOfATill()
{
    JournalFixture journal(till->database.root());
    putTotal(journal, u"heineken"_s, u"delivered"_s, u"none"_s, 40);
    putTotal(journal, u"heineken"_s, u"delivered"_s, u"request"_s, 2);
    putTotal(journal, u"heineken"_s, u"dropped"_s, u"request"_s, 3);
    putTotal(journal, u"heineken"_s, u"kept"_s, u"network"_s, 5);
    putTotal(journal, u"heineken"_s, u"kept"_s, u"service"_s, 6);
    journal.streak(u"heineken"_s, 500, 400);
    journal.streak(u"cardlab"_s, 100, 0);
    till->database.put(u"heineken"_s, body, u"7770001112223334"_s);
    till->setAge(till->database.put(u"heineken"_s, body), 7200);

    const QString out = till->run({u"metrics"_s}).out;
    QCOMPARE(value(out, u"queue_messages_waiting{type=\"heineken\"}"_s), u"2"_s);
    QCOMPARE(value(out, u"queue_messages_waiting{type=\"cardlab\"}"_s), u"0"_s);
    const qint64 age = number(out, u"queue_oldest_message_age_seconds{type=\"heineken\"}"_s);
    QVERIFY2(age >= 7200 && age < 7300, qPrintable(out));
    QCOMPARE(value(out, u"queue_oldest_message_age_seconds{type=\"cardlab\"}"_s), QString());
    QCOMPARE(value(out, u"queue_messages_delivered_total{type=\"heineken\"}"_s), u"42"_s);
    QCOMPARE(value(out, u"queue_messages_dropped_total{type=\"heineken\",kind=\"request\"}"_s),
             u"3"_s);
    QCOMPARE(value(out, u"queue_attempts_kept_total{type=\"heineken\",kind=\"network\"}"_s),
             u"5"_s);
    QCOMPARE(value(out, u"queue_attempts_kept_total{type=\"heineken\",kind=\"service\"}"_s),
             u"6"_s);
    const qint64 delivered = number(out, u"queue_last_delivery_age_seconds{type=\"heineken\"}"_s);
    QVERIFY2(delivered >= 500 && delivered < 600, qPrintable(out));
    const qint64 failing = number(out, u"queue_failing_seconds{type=\"heineken\"}"_s);
    QVERIFY2(failing >= 400 && failing < 500, qPrintable(out));
    QCOMPARE(value(out, u"queue_failing_seconds{type=\"cardlab\"}"_s), u"0"_s);
    // Neither card nor address.
    QVERIFY2(!out.contains(u"3334"_s) && !out.contains(u"127.0.0.1"_s), qPrintable(out));

    // The JSON form has the same figures.
    const QJsonArray metrics =
        till->run({u"metrics"_s, u"--json"_s}).json().value(u"metrics"_s).toArray();
    bool isFound = false;
    for (const QJsonValue &metric : metrics) {
        if (metric[u"name"_s].toString() != u"queue_messages_delivered_total")
            continue;
        isFound = true;
        QCOMPARE(metric[u"type"_s].toString(), u"counter"_s);
        QCOMPARE(metric[u"samples"_s][0][u"value"_s].toInteger(), 42);
        QCOMPARE(metric[u"samples"_s][0][u"labels"_s][u"type"_s].toString(), u"heineken"_s);
    }
    QVERIFY(isFound);
}

void TestMetrics::requeuedRowIsTheOldest()
{
    till->database.put(u"heineken"_s, body);
    till->setAge(till->database.put(u"heineken"_s, body), 9000);
    till->setAge(till->database.put(u"cardlab"_s, body), 50);
    const QString out = till->run({u"metrics"_s}).out;
    QVERIFY(number(out, u"queue_oldest_message_age_seconds{type=\"heineken\"}"_s) >= 9000);
    // The younger row of another type is found when more than 1000 older ones lie before it.
    till->database.query(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1500)"
        " INSERT INTO message (type, body, creationtime)"
        " SELECT 'heineken', '{}', datetime('now', 'localtime', '-1 hour') FROM n"_s);
    const qint64 age = number(till->run({u"metrics"_s}).out,
                              u"queue_oldest_message_age_seconds{type=\"cardlab\"}"_s);
    QVERIFY2(age >= 50 && age < 200, qPrintable(QString::number(age)));
}

void TestMetrics::typesOfTheTableAreNoLabels()
{
    till->database.put(u"7770001112223334"_s, body);
    till->database.put(u"a\"b"_s, body);
    const QString out = till->run({u"metrics"_s}).out;
    QCOMPARE(value(out, u"queue_messages_undeliverable"_s), u"2"_s);
    QVERIFY2(!out.contains(u"7770001112223334"_s), qPrintable(out));
}

void TestMetrics::certificates()
{
    JournalFixture journal(till->database.root());
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    constexpr qint64 day = 86'400'000;
    const auto ends = [&](const QString &path, qint64 days, int usedSecondsAgo) {
        journal.fact(u"certificate"_s, path, QString::number(now + days * day), usedSecondsAgo);
    };
    ends(u"/etc/shop/7/till.p12"_s, 20, 60);
    ends(u"/etc/shop/8/till.p12"_s, 10, 60);
    ends(u"/etc/shop/over.pem"_s, -2, 60);
    ends(u"/etc/shop/replaced.pem"_s, -2, 40 * 86'400);
    journal.fact(u"certificate"_s, u"/etc/shop/odd.pem"_s, u"soon"_s, 60);

    const QString out = till->run({u"metrics"_s}).out;
    const QString series = u"queue_certificate_remaining_seconds{file=\"%1\"}"_s;
    const qint64 left = number(out, series.arg(u"till.p12"_s));
    QVERIFY2(left > 9 * 86'400 && left <= 10 * 86'400, qPrintable(out));
    QVERIFY2(number(out, series.arg(u"over.pem"_s)) < -86'400, qPrintable(out));
    QCOMPARE(out.count(u"queue_certificate_remaining_seconds{"_s), 2);
    QVERIFY2(!out.contains(u"/etc/shop"_s), qPrintable(out));
}

void TestMetrics::sourcesThatAreSilent_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("gauge");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("journal") << u"/tallocash/cash/queue/journal.db"_s << u"queue_journal_up"_s
                             << int(ExitCode::NoService);
    QTest::newRow("database") << u"/tallocash/cash/queue/queues.db"_s << u"queue_database_up"_s
                              << int(ExitCode::NoDatabase);
}

/// Damaged files take away their own figures and no others.
void TestMetrics::sourcesThatAreSilent()
{
    QFETCH(QString, file);
    QFETCH(QString, gauge);
    QFETCH(int, exitCode);
    {
        JournalFixture journal(till->database.root());
        putTotal(journal, u"heineken"_s, u"delivered"_s, u"none"_s, 4);
        journal.streak(u"heineken"_s, 50, 0);
    }
    till->database.put(u"heineken"_s, body);
    const QString path = till->database.root() + file;
    for (const QString &ending : {u"-wal"_s, u"-shm"_s})
        QFile::remove(path + ending);
    // A new file: the test itself has the old one open.
    QVERIFY(QFile::rename(path, path + u".away"_s));
    QFile damaged(path);
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray(8192, 'x'));
    damaged.close();

    const CommandResult result = till->run({u"metrics"_s});
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.err, QString());
    for (const QString &each : {u"queue_journal_up"_s, u"queue_database_up"_s})
        QCOMPARE(value(result.out, each), each == gauge ? u"0"_s : u"1"_s);
    QCOMPARE(value(result.out, u"queue_messages_waiting{type=\"heineken\"}"_s),
             gauge == u"queue_database_up" ? QString() : u"1"_s);
    QCOMPARE(value(result.out, u"queue_messages_delivered_total{type=\"heineken\"}"_s),
             gauge == u"queue_journal_up" ? QString() : u"4"_s);
}

void TestMetrics::serviceAnswers()
{
    till->database.ids();
    rig::LoopbackServer service;
    service.play({rig::LoopbackServer::answer(200, "{\"errorsCount\":6}")});
    till->database.setSettings(u"[queue]\nport = %1\n"_s.arg(service.port()));
    const CommandResult result = till->run({u"metrics"_s});
    QCOMPARE(value(result.out, u"queue_up"_s), u"1"_s);
    QCOMPARE(value(result.out, u"queue_database_errors_total"_s), u"6"_s);
    // The delivery journal is switched on, and missing.
    QCOMPARE(result.exitCode, ExitCode::Found);
}

/// Neither statement may read the bodies, which lie between the columns of a row.
void TestMetrics::plansReadIndexes()
{
    const auto plan = [this](const QString &statement) {
        QStringList lines;
        const auto rows = till->database.query(u"EXPLAIN QUERY PLAN "_s + statement);
        for (const QVariantList &row : rows)
            lines.append(row.last().toString());
        return lines.join(u'\n');
    };
    QCOMPARE(plan(countStatement()), u"SCAN message USING COVERING INDEX message_type"_s);
    QCOMPARE(plan(oldestStatement()), u"SCAN message USING INDEX message_creationtime"_s);
    QVERIFY(oldestStatement().endsWith(u"LIMIT 1000"_s));
}

/// With every type once.
void TestMetrics::promtoolAgrees()
{
    if (promtool::path().isEmpty())
        QSKIP("promtool is not installed (scripts/install-packages packages-fleet)");
    JournalFixture journal(till->database.root());
    for (const HandlerRow &row : handlerTable()) {
        const QString type = QString::fromUtf16(row.type);
        for (const QString &verdict : {u"delivered"_s, u"dropped"_s, u"kept"_s})
            putTotal(journal, type, verdict, u"network"_s, 1);
        journal.streak(type, 60, 60);
        till->database.put(type, body);
    }
    journal.fact(u"certificate"_s, u"/a/\"b\\\n.pem"_s,
                 QString::number(QDateTime::currentMSecsSinceEpoch()), 60);
    const CommandResult result = till->run({u"metrics"_s});
    QCOMPARE(result.out.count(u"\nqueue_messages_waiting{"_s), qsizetype(handlerTable().size()));
    const QStringList check{u"check"_s, u"metrics"_s};
    QCOMPARE(promtool::complaint(check, result.out.toUtf8()), QString());
    // It does look.
    QVERIFY(!promtool::complaint(check, result.out.toUtf8() + "queue_up{type=\"} 1\n").isEmpty());
}

QTEST_GUILESS_MAIN(TestMetrics)
#include "tst_metrics.moc"
