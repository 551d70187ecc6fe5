#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "rig/loopbackserver.h"
#include "tools/queuectl/command.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSysInfo>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;
using rig::LoopbackServer;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\",\"body\":\"1\"}"_s;
/// A zone whose offset never changes.
const QMap<QString, QString> zone{{u"TZ"_s, u"UTC-3"_s}};

struct Tried
{
    QString call;
    /// How many times the answer has at least, that of the answer itself among them.
    int times = 1;
    bool hasService = false;
};

const QList<Tried> &calls()
{
    static const QList<Tried> rows{
        {u"status"_s, 4},
        {u"watch --count 1"_s, 4},
        {u"list heineken"_s, 3},
        {u"list --older 1h"_s, 2},
        {u"show 2"_s, 2},
        {u"why 1"_s, 2, true},
        {u"why 17"_s, 1},
        {u"shape"_s, 2},
        {u"history"_s, 3},
        {u"outages --since 7d"_s, 3},
        {u"settle --wait 0"_s, 2},
        {u"put heineken -"_s, 1},
        {u"lint --type heineken -"_s, 1},
        {u"types heineken"_s, 1},
        {u"types"_s, 1},
        {u"start heineken"_s, 1, true},
        {u"errors"_s, 1, true},
        {u"drop 1 --yes"_s, 1},
        {u"requeue 1 --yes"_s, 1},
        {u"import -"_s, 1},
        {u"restore /nosuch --yes"_s, 1},
        {u"doctor"_s, 1},
        {u"check"_s, 1},
        {u"metrics"_s, 1},
        {u"bundle --output bundle.tar.gz"_s, 2},
        {u"report --since 2h --html report.html"_s, 2},
        // What cannot be done.
        {u"show 4711"_s, 1},
        {u"start heineken heineken heineken"_s, 1},
        {u"errors --reset"_s, 1},
    };
    return rows;
}

/// The texts in `value` that are times, and which are not in the one form that they should have.
void findTimes(const QJsonValue &value, QStringList &times, QStringList &wrong)
{
    static const QRegularExpression aTime(u"^\\d{4}-\\d\\d-\\d\\d[T ]\\d\\d:\\d\\d"_s);
    static const QRegularExpression ourForm(
        u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\+03:00$"_s);
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (const QJsonValue &member : object)
            findTimes(member, times, wrong);
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (const QJsonValue &member : array)
            findTimes(member, times, wrong);
    } else if (aTime.match(value.toString()).hasMatch()) {
        times.append(value.toString());
        if (!ourForm.match(value.toString()).hasMatch())
            wrong.append(value.toString());
    }
}

} // namespace

/// The JSON form of each command: where and when it was given, and times with their offset.
class TestQueuectlJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void answers_data();
    void answers();
    void everyCommandIsTried();
    void creationTimeIsTheRows();
    void exportedRowsAreThoseOfTheTable();

private:
    void check(const QByteArray &json, int times);

    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
    std::unique_ptr<LoopbackServer> service;
};

void TestQueuectlJson::init()
{
    service.reset();
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
    till->setAge(till->database.put(u"heineken"_s, body), 7300);
    till->database.put(u"heineken"_s, body);
    till->setFailIds("{\"heineken\":1}");
    journal->put({.id = 1, .verdict = u"kept"_s, .kind = u"network"_s, .attempts = 2});
    journal->put({.id = 17, .secondsAgo = 600});
    journal->streak(u"heineken"_s, 0, 60);
}

void TestQueuectlJson::answers_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("times");
    QTest::addColumn<bool>("hasService");
    for (const Tried &tried : calls())
        QTest::newRow(qPrintable(tried.call))
            << tried.call.split(u' ') << tried.times << tried.hasService;
}

void TestQueuectlJson::answers()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, times);
    QFETCH(bool, hasService);
    if (hasService) {
        service = std::make_unique<LoopbackServer>();
        const QByteArray answer = arguments.first() == u"start"
                                      ? QByteArray("{\"description\":\"no\"}")
                                      : QByteArray("{\"errorsCount\":0}");
        const LoopbackServer::Reply reply = LoopbackServer::answer(200, answer);
        service->play({reply, reply, reply});
        till->database.setSettings(u"[queue]\nport = %1\n"_s.arg(service->port()));
    }
    if (arguments.first() == u"bundle" || arguments.first() == u"report")
        arguments.last() = till->database.root() + u'/' + arguments.last();
    const QByteArray input = arguments.first() == u"import" ? "{\"exported\":0}\n" : body.toUtf8();
    const CommandResult result = till->run(arguments + QStringList{u"--json"_s}, input, zone);
    // Both at once would be two documents for one reader.
    QVERIFY2(result.out.isEmpty() != result.err.isEmpty(), qPrintable(result.out + result.err));
    check((result.out + result.err).toUtf8(), times);
}

void TestQueuectlJson::check(const QByteArray &json, int times)
{
    // Several lines that are objects, or one object over several lines.
    QList<QJsonObject> answers;
    const QJsonDocument whole = QJsonDocument::fromJson(json);
    if (whole.isObject()) {
        answers.append(whole.object());
    } else {
        for (const QByteArray &line : json.trimmed().split('\n'))
            answers.append(QJsonDocument::fromJson(line).object());
    }
    const QString version = till->run({u"--version"_s}).out.trimmed().section(u' ', 1);
    for (const QJsonObject &answer : std::as_const(answers)) {
        QCOMPARE(answer.value(u"host"_s).toString(), QSysInfo::machineHostName());
        QCOMPARE(answer.value(u"version"_s).toString(), version);
        const QDateTime time =
            QDateTime::fromString(answer.value(u"time"_s).toString(), Qt::ISODateWithMs);
        const qint64 age = time.secsTo(QDateTime::currentDateTime());
        QVERIFY2(age >= 0 && age < 60, json.constData());
        QStringList found;
        QStringList wrong;
        findTimes(answer, found, wrong);
        QCOMPARE(wrong, QStringList());
        QVERIFY2(found.size() >= times, json.constData());
    }
}

/// `export` is, below.
void TestQueuectlJson::everyCommandIsTried()
{
    QSet<QString> tried{u"export"_s};
    for (const Tried &each : calls())
        tried.insert(each.call.section(u' ', 0, 0));
    for (const Command &command : commandTable())
        QVERIFY2(tried.contains(command.name), qPrintable(command.name));
}

/// A row's time is the till's clock without a zone.
void TestQueuectlJson::creationTimeIsTheRows()
{
    till->database.query(
        u"UPDATE message SET creationtime = '2026-01-31 12:00:00' WHERE messageid = 1"_s);
    const auto show = [this] {
        return till->run({u"show"_s, u"1"_s, u"--json"_s}, {}, zone)
            .json()
            .value(u"creationTime"_s);
    };
    QCOMPARE(show().toString(), u"2026-01-31T12:00:00.000+03:00"_s);
    till->database.query(u"UPDATE message SET creationtime = 'noon' WHERE messageid = 1"_s);
    QVERIFY(show().isNull());
}

/// They go back into a table as they are; the closing line has where and when.
void TestQueuectlJson::exportedRowsAreThoseOfTheTable()
{
    const QString out = till->run({u"export"_s, u"--json"_s}, {}, zone).out;
    const QStringList lines = out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 3);
    const QJsonObject row = QJsonDocument::fromJson(lines.first().toUtf8()).object();
    QCOMPARE(row.keys(), (QStringList{u"body"_s, u"cardnumber"_s, u"creationtime"_s, u"messageid"_s,
                                      u"statuscode"_s, u"type"_s}));
    const QJsonObject closing = QJsonDocument::fromJson(lines.last().toUtf8()).object();
    QCOMPARE(closing.value(u"exported"_s).toInt(), 2);
    check(lines.last().toUtf8(), 1);
    QCOMPARE(till->run({u"import"_s, u"-"_s}, out.toUtf8()).exitCode, ExitCode::Done);
}

QTEST_GUILESS_MAIN(TestQueuectlJson)
#include "tst_queuectljson.moc"
