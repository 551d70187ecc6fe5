#include "rig/roughpeer.h"
#include "rig/waiting.h"
#include "tests/faults/clocklibrary.h"
#include "tests/faults/form.h"
#include "tests/faults/till.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QtTest>

#include <chrono>

using namespace Qt::StringLiterals;
using rig::RoughPeer;

namespace {

constexpr int tickMs = 1000;
/// The margin for a busy machine.
constexpr int slackMs = 5000;

/// Replies to every request and ignores other bytes on the connection.
RoughPeer::Conduct answers(const QByteArray &body, std::atomic<int> &count)
{
    return [body, &count](RoughPeer::Line &line) {
        while (line.readRequest()) {
            ++count;
            if (!line.send("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size())
                           + "\r\n\r\n" + body))
                return;
        }
    };
}

} // namespace

/// The till's clock is set while the service runs: nothing stalls, nothing loops.
class TestClocks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void clockIsSet_data();
    void clockIsSet();
    void clockIsSetWithinAPoll_data();
    void clockIsSetWithinAPoll();
    void clockIsSetForthAndBack();

private:
    /// The offset of the service's clock from now on, such as "-3h" or "+10y".
    void setClock(const QString &offset);
    /// Deliveries of every kind, each within a few polls.
    void deliver();
    /// The time of day in the last line of the service's log file.
    QDateTime lastLogTime() const;

    std::atomic<int> received{0};
    std::unique_ptr<RoughPeer> receiver;
    std::unique_ptr<faults::Till> till;
    QTemporaryDir folder;
    int settings = 0;
    int deliveries = 0;
    qint64 longestMs = 0;
    double mostLoad = 0;
};

void TestClocks::initTestCase()
{
    const QString library = faults::clockLibrary();
    if (library.isEmpty())
        QSKIP("libfaketime is not installed (scripts/install-packages): clocks were not set");
    if (faults::isSanitized())
        QSKIP("A sanitizer and libfaketime cannot share a process: clocks were not set");

    setClock(u"+0"_s);
    // A file for each day, as on a till, and the console, which the rig reads.
    const QString logging = folder.filePath(u"log.properties"_s);
    QFile file(logging);
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QString layout =
        u"org.apache.log4j.PatternLayout\nlog4j.appender.%1.layout.ConversionPattern="
        "%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n\n"_s;
    file.write((u"log4j.rootLogger=DEBUG, console, daily\n"
                "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
                "log4j.appender.console.layout="_s
                + layout.arg(u"console"_s)
                + u"log4j.appender.daily=org.apache.log4j.DailyRollingFileAppender\n"
                  "log4j.appender.daily.File=%1\n"
                  "log4j.appender.daily.DatePattern='.'yyyy-MM-dd\n"
                  "log4j.appender.daily.layout="_s.arg(folder.filePath(u"queue.log"_s))
                + layout.arg(u"daily"_s))
                   .toUtf8());
    file.close();

    receiver = std::make_unique<RoughPeer>(answers({}, received));
    till = std::make_unique<faults::Till>(
        QString(),
        QMap<QString, QString>{
            {u"LD_PRELOAD"_s, QStringLiteral(TRUESLEEP " ") + library},
            {u"FAKETIME_TIMESTAMP_FILE"_s, folder.filePath(u"clock"_s)},
            {u"FAKETIME_NO_CACHE"_s, u"1"_s},
            // Setting a clock changes only the time of day; this clock counts from the start.
            {u"FAKETIME_DONT_FAKE_MONOTONIC"_s, u"1"_s},
            {u"DONT_FAKE_MONOTONIC"_s, u"1"_s},
            {u"LOG4QT_CONFIGURATION"_s, logging},
        });
    till->start();
}

void TestClocks::cleanup()
{
    if (!till)
        return;
    QVERIFY(till->service().isRunning());
    QCOMPARE(till->service().errors(), QString());
}

void TestClocks::setClock(const QString &offset)
{
    // Replaced atomically, so that half of it is never read.
    const QString path = folder.filePath(u"clock"_s);
    QFile file(path + u".new"_s);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.write(offset.toUtf8() + '\n') > 0);
    file.close();
    QVERIFY(::rename(QFile::encodeName(file.fileName()).constData(),
                     QFile::encodeName(path).constData())
            == 0);
    ++settings;
}

QDateTime TestClocks::lastLogTime() const
{
    QFile file(folder.filePath(u"queue.log"_s));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QList<QByteArray> lines = file.readAll().trimmed().split('\n');
    return QDateTime::fromString(QString::fromUtf8(lines.last().left(19)),
                                 u"yyyy-MM-dd HH:mm:ss"_s);
}

void TestClocks::deliver()
{
    const QString url = u"http://127.0.0.1:%1/"_s.arg(receiver->port());
    const QJsonObject plain{{u"url"_s, url}, {u"body"_s, u"1"_s}};
    const QJsonObject ordered{{u"url"_s, url}, {u"body"_s, u"[{\"exciseMarkId\":\"M-17\"}]"_s}};
    const int receivedBefore = received;
    QElapsedTimer timer;
    timer.start();
    // The second message about the mark waits for the first.
    const QList<int> ids{till->put(u"heineken"_s, plain), till->put(u"excisemark"_s, ordered),
                         till->put(u"excisemark"_s, ordered), till->put(u"nochange"_s, plain)};
    for (const int id : ids)
        QVERIFY(till->waitUntilRemoved(id));
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed < 4 * tickMs + slackMs, QByteArray::number(elapsed));
    QCOMPARE(received.load(), receivedBefore + static_cast<int>(ids.size()));
    deliveries += static_cast<int>(ids.size());
    longestMs = std::max(longestMs, elapsed);
}

void TestClocks::clockIsSet_data()
{
    QTest::addColumn<QString>("offset");
    QTest::addColumn<qint64>("seconds");
    constexpr qint64 hour = 3600;
    constexpr qint64 year = 365 * 24 * hour;
    // clang-format off
    QTest::newRow("an hour forward")                  << u"+1h"_s  << hour;
    QTest::newRow("two hours back from there")        << u"-1h"_s  << -hour;
    QTest::newRow("ten years forward")                << u"+10y"_s << 10 * year;
    QTest::newRow("thirty years back from there")     << u"-20y"_s << -20 * year;
    if (!faults::longForm())
        return;
    QTest::newRow("a day ahead")                      << u"+1d"_s  << 24 * hour;
    QTest::newRow("to a second before the right time") << u"-1"_s   << qint64{-1};
    // clang-format on
}

void TestClocks::clockIsSet()
{
    QFETCH(QString, offset);
    QFETCH(qint64, seconds);
    // A row that is always refused, so that it is retried before and after the change.
    const int refused = till->put(u"winelabbonus"_s, {{u"url"_s, u"http://127.0.0.1:1/"_s}});
    QVERIFY(
        till->waitForEnds(u"winelabbonus"_s, till->service().log().ends(u"winelabbonus"_s) + 1));

    setClock(offset);
    deliver();
    QVERIFY(
        till->waitForEnds(u"winelabbonus"_s, till->service().log().ends(u"winelabbonus"_s) + 1));

    // The service has seen the clock change, and the log goes on.
    const qint64 off = QDateTime::currentDateTime().secsTo(lastLogTime()) - seconds;
    constexpr qint64 day = 24 * 3600;
    QVERIFY2(qAbs(off) < (qAbs(seconds) > 30 * day ? 10 * day : 60), QByteArray::number(off));

    // Setting the clock forward counts as time that has passed, so the fail ids are on disk.
    if (qAbs(seconds) >= 3600) {
        QVERIFY(rig::waitUntil([this] {
            QFile file(till->path(u"tallocash/cash/queue/ids.json"_s));
            return file.open(QIODevice::ReadOnly)
                   && QJsonDocument::fromJson(file.readAll()).isObject();
        }));
    }
    till->remove(refused);
    QVERIFY(rig::waitUntil([this] { return till->service().log().isIdle(); }));

    // An idle service uses hardly any processor time, checked over several polls.
    const double before = till->processorSeconds();
    QVERIFY(before > 0);
    QElapsedTimer timer;
    timer.start();
    const int watchMs = faults::count(1, 20) * tickMs;
    QVERIFY(rig::waitUntil([&] { return timer.hasExpired(watchMs); }));
    const double load =
        (till->processorSeconds() - before) * 1000 / static_cast<double>(timer.elapsed());
    constexpr double tolerable = 0.1;
    QVERIFY2(load < tolerable, QByteArray::number(load));
    mostLoad = std::max(mostLoad, load);
}

void TestClocks::clockIsSetWithinAPoll_data()
{
    QTest::addColumn<QString>("offset");
    QTest::newRow("forward") << u"+5y"_s;
    QTest::newRow("back") << u"-5y"_s;
}

/// A refund whose state is requested at intervals: the intervals and the whole duration do not
/// depend on the clock. The first request is still waiting for its timeout when the clock is set
/// for the first time.
void TestClocks::clockIsSetWithinAPoll()
{
    QFETCH(QString, offset);
    std::atomic<int> refunds{0};
    std::atomic<int> questions{0};
    RoughPeer silent([&refunds](RoughPeer::Line &line) {
        if (line.readRequest()) {
            ++refunds;
            line.listen();
        }
    });
    // Not over yet.
    RoughPeer bank(answers("{\"code\":\"1\"}", questions));
    constexpr int durationMs = 2000;
    constexpr int intervalMs = 250;
    QElapsedTimer timer;
    timer.start();
    const int id =
        till->put(u"rsbsbp"_s, {{u"urlRefund"_s, u"http://127.0.0.1:%1/"_s.arg(silent.port())},
                                {u"urlStatus"_s, u"http://127.0.0.1:%1/"_s.arg(bank.port())},
                                {u"headers"_s, QJsonObject()},
                                {u"bodyRefund"_s, QJsonObject()},
                                {u"bodyStatus"_s, QJsonObject()},
                                {u"timeout"_s, 1},
                                {u"duration"_s, durationMs},
                                {u"interval"_s, intervalMs}});
    QVERIFY(rig::waitUntil([&refunds] { return refunds > 0; }));
    setClock(offset);
    QVERIFY(rig::waitUntil([&questions] { return questions > 2; }));
    setClock(u"+0"_s);
    QVERIFY(till->waitUntilRemoved(id));
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(refunds.load(), 1);
    QVERIFY2(elapsed >= durationMs && elapsed < 2 * tickMs + durationMs + slackMs,
             QByteArray::number(elapsed));
    // About eight requests, with pauses between them.
    QVERIFY2(questions <= durationMs / intervalMs + 3, QByteArray::number(questions.load()));
    ++deliveries;
}

void TestClocks::clockIsSetForthAndBack()
{
    const int rounds = faults::count(4, 200);
    for (int i = 0; i < rounds; ++i) {
        setClock(i % 2 == 0 ? u"+%1d"_s.arg(i * 37 + 1) : u"-%1h"_s.arg(i * 11 + 1));
        deliver();
    }
    setClock(u"+0"_s);
    deliver();
    qInfo(
        "clocks: set %d times, %d deliveries after it, at most %lld ms from row to removal, at most %.2f %% of a "
        "processor when idle",
        settings, deliveries, static_cast<long long>(longestMs), mostLoad * 100);
}

QTEST_GUILESS_MAIN(TestClocks)
#include "tst_clocks.moc"
