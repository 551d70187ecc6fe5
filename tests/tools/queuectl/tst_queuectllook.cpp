#include "rig/loopbackserver.h"
#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "shared/text/escaping.h"
#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "tools/catalogue/catalogue.h"
#include "tools/queuectl/failure.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QtTest>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;
using rig::LoopbackServer;

namespace {

const QString body =
    u"{\"url\":\"http://127.0.0.1:8000/sales\",\"headers\":{\"Authorization\":\"Bearer abc\"},\"body\":\"1\"}"_s;
const QString refusal = u"Сервер 127.0.0.1:8000 отклонил соединение"_s;
const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};

/// A message that stayed because the port was closed.
Record refused(int id, int secondsAgo = 60)
{
    return {.id = id,
            .verdict = u"kept"_s,
            .kind = u"network"_s,
            .status = 0,
            .text = refusal,
            .secondsAgo = secondsAgo};
}

} // namespace

/// The commands that only look, without a running service.
class TestQueuectlLook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void statusOfAnEmptyQueue();
    void statusShowsTypes();
    void concerns_data();
    void concerns();
    void statusShowsTheRole();
    void statusWithoutDatabase_data();
    void statusWithoutDatabase();
    void listPages();
    void destinations_data();
    void destinations();
    void listOfUnknownType();
    void listOfTypeWithoutHandler();
    void listByCard();
    void showMasks();
    void showOfBrokenBody();
    void hiddenCharacters_data();
    void hiddenCharacters();
    void hiddenCharactersInJson();
    void hiddenCharactersInAQuestion();
    void linesOfABodyCannotPassForOurs();
    void columnsHaveALargestWidth_data();
    void columnsHaveALargestWidth();
    void unknownRow_data();
    void unknownRow();
    void shapeGroups();
    void shapeTellsSinceWhen();
    void shapeJoinsTypes();
    void shapeKeepsTypesWithoutAddressApart();
    void shapeWithoutHistory();
    void why_data();
    void why();
    void whyNamesTheRule();
    void whyNamesTheRuleOfTheReply();
    void portOfAnotherProgram();
    void whyCountsRowsBefore();
    void unknownFactsAreNamed_data();
    void unknownFactsAreNamed();
    void noRightsIsNotNoDatabase_data();
    void noRightsIsNotNoDatabase();
    void failIdsMayNotBeRead();
    void whyNamesTheAnswerToThisRow();
    void whyOfAFinishedRow();
    void whyOfADeletedRow_data();
    void whyOfADeletedRow();
    void whyOfAnUnknownRow();
    void todayByType();
    void speaksRussian();
    void coloursOnTerminalOnly();
    void looksOnly();

private:
    int put(const QString &type = u"heineken"_s, const QString &text = body)
    {
        return till->database.put(type, text, u"77001234567890"_s);
    }
    QJsonObject why(int id);

    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
};

void TestQueuectlLook::init()
{
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
}

void TestQueuectlLook::statusOfAnEmptyQueue()
{
    till->database.ids();
    const CommandResult outcome = till->run({u"status"_s});
    QVERIFY2(outcome.out.contains(u"Nothing waits."), qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, ExitCode::NoService);
    QCOMPARE(outcome.err, QString());
}

void TestQueuectlLook::statusShowsTypes()
{
    const int first = put();
    put();
    put(u"nosuch"_s);
    till->setAge(first, 7860);
    till->setFailIds("{\"heineken\":" + QByteArray::number(first) + "}");
    journal->put(refused(first));

    const CommandResult outcome = till->run({u"status"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NoService);
    const QJsonObject status = outcome.json();
    QCOMPARE(status.value(u"waiting"_s).toInt(), 3);
    const QJsonObject database = status.value(u"database"_s).toObject();
    QCOMPARE(database.value(u"state"_s).toString(), u"ok"_s);
    QCOMPARE(database.value(u"place"_s).toString(), till->database.file());
    const QJsonObject control = status.value(u"control"_s).toObject();
    QCOMPARE(control.value(u"state"_s).toString(), u"silent"_s);
    QCOMPARE(control.value(u"port"_s).toInt(), till->port());

    const QJsonArray types = status.value(u"types"_s).toArray();
    QCOMPARE(types.size(), 2);
    const QJsonObject type = types.at(0).toObject();
    QCOMPARE(type.value(u"type"_s).toString(), u"heineken"_s);
    QCOMPARE(type.value(u"waiting"_s).toInt(), 2);
    QVERIFY(type.value(u"oldestAgeSeconds"_s).toInt() >= 7860);
    QCOMPARE(type.value(u"failId"_s).toInt(), first);
    QCOMPARE(type.value(u"lastFailure"_s).toString(), refusal);
    QCOMPARE(type.value(u"lastFailureCause"_s).toString(), u"network"_s);
    QVERIFY(
        QDateTime::fromString(type.value(u"lastFailureTime"_s).toString(), Qt::ISODate).isValid());
    QCOMPARE(types.at(1).toObject().value(u"delivered"_s), QJsonValue(false));

    const QString text = till->run({u"status"_s}).out;
    QVERIFY2(text.contains(u"2 h 11 min"), qPrintable(text));
    QVERIFY2(text.contains(refusal), qPrintable(text));
}

void TestQueuectlLook::concerns_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("age");
    // Seconds ago; 0: never, and not failing.
    QTest::addColumn<int>("delivered");
    QTest::addColumn<int>("failing");
    QTest::addColumn<QString>("concern");
    QTest::newRow("new row") << u"heineken"_s << 3000 << 0 << 0 << QString();
    QTest::newRow("old row") << u"heineken"_s << 3700 << 0 << 0
                             << u"old: rows that wait for more than an hour: 1"_s;
    QTest::newRow("nobody delivers it")
        << u"nosuch"_s << 0 << 0 << 0 << u"no-handler: nobody delivers this type, rows: 1"_s;
    QTest::newRow("has only failed")
        << u"heineken"_s << 0 << 0 << 60
        << u"only-failed: was never delivered, only refused, rows: 1"_s;
    QTest::newRow("was delivered and failed") << u"heineken"_s << 0 << 90 << 60 << QString();
    QTest::newRow("failed and was delivered") << u"heineken"_s << 0 << 60 << 0 << QString();
}

void TestQueuectlLook::concerns()
{
    QFETCH(const QString, type);
    QFETCH(const int, age);
    QFETCH(const int, delivered);
    QFETCH(const int, failing);
    QFETCH(const QString, concern);
    till->setAge(put(type), age);
    if (delivered > 0 || failing > 0)
        journal->streak(type, delivered, failing);
    QStringList found;
    const QJsonObject status = till->run({u"status"_s, u"--json"_s}).json();
    for (const QJsonValue &value : status.value(u"concerns"_s).toArray())
        found.append(value[u"kind"_s].toString() + u": "_s + value[u"text"_s].toString());
    QCOMPARE(found, concern.isEmpty() ? QStringList{} : QStringList{concern});
    const QString text = concern.section(u": "_s, 1);
    QVERIFY(till->run({u"status"_s}).out.contains(text));
    const QString doctor = till->run({u"doctor"_s}).out;
    QVERIFY2(doctor.contains(concern.isEmpty() ? u"every type is delivered"_s : text),
             qPrintable(doctor));
}

void TestQueuectlLook::statusShowsTheRole()
{
    const auto process = [this] {
        return till->run({u"status"_s, u"--json"_s}).json().value(u"process"_s).toObject();
    };
    QCOMPARE(process(), (QJsonObject{{u"pid"_s, QJsonValue()}, {u"role"_s, QJsonValue()}}));
    FolderLock service(serviceLockFile());
    QCOMPARE(service.take(u"standby"_s), FolderLock::Result::Taken);
    QCOMPARE(process(), (QJsonObject{{u"pid"_s, QCoreApplication::applicationPid()},
                                     {u"role"_s, u"standby"_s}}));
    QVERIFY(till->run({u"status"_s}).out.contains(u"stand-by, another service delivers"_s));
    QVERIFY(till->run({u"status"_s}, {}, russian)
                .out.contains(u"в резерве, доставляет другая служба"_s));
    service.setRole(u"active"_s);
    QVERIFY(till->run({u"status"_s}, {}, russian).out.contains(u"обслуживает очередь"_s));
}

void TestQueuectlLook::statusWithoutDatabase_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<bool>("withEmptyFile");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QString() << false << u"There is no database"_s;
    QTest::newRow("empty file") << QString() << true << u"is an empty file"_s;
    QTest::newRow("unknown driver") << u"[database]\ndriver = QNOSUCH\n"_s << false << u"QNOSUCH"_s;
    QTest::newRow("no server")
        << u"[database]\ndriver = QMYSQL\nsocket = /nowhere\npassword = hush\n"_s << false
        << u"/nowhere"_s;
}

void TestQueuectlLook::statusWithoutDatabase()
{
    QFETCH(const QString, settings);
    QFETCH(const bool, withEmptyFile);
    QFETCH(const QString, reason);
    till->setSettings(settings);
    if (withEmptyFile)
        till->write(u"/tallocash/cash/queue/queues.db"_s, {});
    const CommandResult outcome = till->run({u"status"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NoDatabase);
    QVERIFY2(outcome.out.contains(reason), qPrintable(outcome.out));
    QVERIFY(!outcome.out.contains(u"hush"));
    const QJsonObject database =
        till->run({u"status"_s, u"--json"_s}).json().value(u"database"_s).toObject();
    QCOMPARE(database.value(u"state"_s).toString(), u"unreachable"_s);

    const CommandResult list = till->run({u"list"_s, u"heineken"_s, u"--json"_s});
    QCOMPARE(list.exitCode, ExitCode::NoDatabase);
    QVERIFY2(list.err.contains(reason), qPrintable(list.err));
    QVERIFY2(QJsonDocument::fromJson(list.err.toUtf8())
                 .object()
                 .value(u"error"_s)
                 .toObject()
                 .value(u"text"_s)
                 .toString()
                 .contains(QRegularExpression(u"\\A[A-Z][a-z]+ "_s)),
             qPrintable(list.err));
    // Only the service creates a database.
    QCOMPARE(QFile(till->database.file()).size(), 0);
}

void TestQueuectlLook::listPages()
{
    for (int i = 0; i < 60; ++i)
        put();
    const QJsonObject first = till->run({u"list"_s, u"heineken"_s, u"--json"_s}).json();
    QCOMPARE(first.value(u"rows"_s).toArray().size(), 50);
    QCOMPARE(first.value(u"more"_s), QJsonValue(true));
    QCOMPARE(first.value(u"total"_s).toInt(), 60);
    const QJsonObject row = first.value(u"rows"_s).toArray().at(0).toObject();
    QCOMPARE(row.value(u"id"_s).toInt(), 1);
    QCOMPARE(row.value(u"cardNumber"_s).toString(), u"77001234567890"_s);
    QCOMPARE(row.value(u"destination"_s).toString(), u"127.0.0.1:8000"_s);
    QCOMPARE(row.value(u"bodyBytes"_s).toInt(), body.size());

    const QJsonObject rest =
        till->run({u"list"_s, u"heineken"_s, u"--after"_s, u"50"_s, u"--json"_s}).json();
    QCOMPARE(rest.value(u"rows"_s).toArray().size(), 10);
    QCOMPARE(rest.value(u"more"_s), QJsonValue(false));

    const CommandResult limited = till->run({u"list"_s, u"heineken"_s, u"--limit"_s, u"3"_s});
    QCOMPARE(limited.exitCode, ExitCode::Done);
    QVERIFY2(limited.out.contains(u"queuectl list heineken --after 3"), qPrintable(limited.out));
    QCOMPARE(till->run({u"list"_s, u"heineken"_s, u"--limit"_s, u"none"_s}).exitCode,
             ExitCode::Usage);
}

void TestQueuectlLook::destinations_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("destination");
    QTest::newRow("address") << u"heineken"_s << u"{\"url\":\"https://a.example/b\"}"_s
                             << u"a.example"_s;
    QTest::newRow("address with port")
        << u"heineken"_s << u"{\"url\":\"https://a.example:8443/b\"}"_s << u"a.example:8443"_s;
    QTest::newRow("within a part")
        << u"platiqr"_s << u"{\"orderStatus\":{\"url\":\"https://b.example/c\"}}"_s
        << u"b.example"_s;
    QTest::newRow("host and port")
        << u"eps"_s << u"{\"host\":\"192.0.2.18\",\"port\":7001}"_s << u"192.0.2.18:7001"_s;
    QTest::newRow("host named url")
        << u"dssl"_s << u"{\"url\":\"192.0.2.17\",\"port\":9000}"_s << u"192.0.2.17:9000"_s;
    QTest::newRow("by a setting") << u"atolpay"_s << u"{}"_s << u"pay.example"_s;
    QTest::newRow("by the default of a setting")
        << u"apmindbox"_s << u"{}"_s << u"api.mindbox.ru"_s;
    QTest::newRow("list of addresses")
        << u"heineken"_s
        << u"{\"urls\":[\"https://a.example/b\",\"https://a.example/c\",\"http://d.example:81\"]}"_s
        << u"a.example, d.example:81"_s;
    QTest::newRow("list of hosts")
        << u"tallobonus"_s
        << u"{\"settings\":{\"hosts\":[\"http://e.example\",\"192.0.2.9:81\"]}}"_s
        << u"e.example, 192.0.2.9:81"_s;
    QTest::newRow("in a list of parts")
        << u"heineken"_s << u"{\"parts\":[{\"n\":1},{\"url\":\"https://f.example/\"}]}"_s
        << u"f.example"_s;
    QTest::newRow("in a list of texts")
        << u"heineken"_s << u"{\"x\":[[\"a\"],[\"https://g.example/\"]]}"_s << u"g.example"_s;
    QTest::newRow("nowhere") << u"heineken"_s << u"{\"a\":1}"_s << QString();
    QTest::newRow("text that is not a list")
        << u"heineken"_s << u"{\"urls\":\"no\"}"_s << QString();
}

void TestQueuectlLook::destinations()
{
    QFETCH(const QString, type);
    QFETCH(const QString, text);
    till->setSettings(u"[atolpay]\nurl = https://pay.example/\n"_s);
    put(type, text);
    const QJsonArray rows =
        till->run({u"list"_s, type, u"--json"_s}).json().value(u"rows"_s).toArray();
    QTEST(rows.at(0).toObject().value(u"destination"_s).toString(), "destination");
}

void TestQueuectlLook::listOfUnknownType()
{
    put();
    const CommandResult outcome = till->run({u"list"_s, u"heinekn"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NotFound);
    QVERIFY2(outcome.err.contains(u"did you mean heineken?"), qPrintable(outcome.err));
    // A known type without rows is not an error.
    QCOMPARE(till->run({u"list"_s, u"cardlab"_s}).exitCode, ExitCode::Done);
}

void TestQueuectlLook::listOfTypeWithoutHandler()
{
    put(u"nosuch"_s);
    const CommandResult outcome = till->run({u"list"_s, u"nosuch"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY2(outcome.out.contains(u"no handler for type nosuch"), qPrintable(outcome.out));
}

void TestQueuectlLook::listByCard()
{
    put();
    till->database.put(u"heineken"_s, body, u"5"_s);
    const QJsonArray rows = till->run({u"list"_s, u"heineken"_s, u"--card"_s, u"5"_s, u"--json"_s})
                                .json()
                                .value(u"rows"_s)
                                .toArray();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.at(0).toObject().value(u"id"_s).toInt(), 2);
}

void TestQueuectlLook::showMasks()
{
    put();
    for (const QStringList &further : {QStringList{}, QStringList{u"--json"_s}}) {
        const CommandResult masked = till->run(QStringList{u"show"_s, u"1"_s} + further);
        QCOMPARE(masked.exitCode, ExitCode::Done);
        QVERIFY2(!masked.out.contains(u"abc"), qPrintable(masked.out));
        QVERIFY2(masked.out.contains(u"\"***\""), qPrintable(masked.out));
        const CommandResult plain =
            till->run(QStringList{u"show"_s, u"1"_s, u"--secrets"_s} + further);
        QVERIFY2(plain.out.contains(u"Bearer abc"), qPrintable(plain.out));
    }
    const QJsonObject row = till->run({u"show"_s, u"1"_s, u"--json"_s}).json();
    QCOMPARE(row.value(u"id"_s).toInt(), 1);
    QCOMPARE(row.value(u"type"_s).toString(), u"heineken"_s);
    QCOMPARE(row.value(u"body"_s).toObject().value(u"url"_s).toString(),
             u"http://127.0.0.1:8000/sales"_s);
}

void TestQueuectlLook::showOfBrokenBody()
{
    put(u"heineken"_s, u"password=hush, no JSON"_s);
    const CommandResult outcome = till->run({u"show"_s, u"1"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY2(outcome.out.contains(u"not a JSON object"), qPrintable(outcome.out));
    QVERIFY2(!outcome.out.contains(u"hush"), qPrintable(outcome.out));
    QCOMPARE(till->run({u"show"_s, u"1"_s, u"--secrets"_s, u"--json"_s})
                 .json()
                 .value(u"bodyText"_s)
                 .toString(),
             u"password=hush, no JSON"_s);
}

namespace {

/// What a hostile reply or row may hold, and how it is shown in a line.
const QString hidden = u"\u001b[2J\r\n\u009b\u202e\u2028"_s;
const QString shownHidden = uR"(\x1b[2J\x0d\x0a\x9b\u202e\u2028)"_s;

/// The characters that must not reach the terminal, except the line end.
QString hiddenIn(const QString &text)
{
    static const QRegularExpression pattern(
        u"[\\x{0}-\\x{9}\\x{b}-\\x{1f}\\x{7f}-\\x{9f}\\x{61c}\\x{200b}-\\x{200f}"
        "\\x{2028}-\\x{202e}\\x{2060}-\\x{206f}\\x{feff}].{0,20}"_s);
    return pattern.match(text).captured();
}

} // namespace

void TestQueuectlLook::hiddenCharacters_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("shown");
    const auto row = [](const QStringList &arguments, const QString &shown = shownHidden) {
        QTest::newRow(qPrintable(escaping::escaped(arguments.join(u' ')))) << arguments << shown;
    };
    row({u"status"_s});
    row({u"watch"_s, u"--count"_s, u"1"_s});
    row({u"list"_s, u"heineken"_s});
    row({u"list"_s, hidden});
    row({u"show"_s, u"1"_s});
    row({u"show"_s, u"2"_s});
    row({u"show"_s, u"3"_s});
    row({u"why"_s, u"1"_s});
    // Blanks of an answer become one.
    row({u"why"_s, u"2"_s}, uR"("answer \x1b[2J \x9b\u202e")"_s);
    row({u"why"_s, u"3"_s}, uR"("answer \x1b[2J \x9b\u202e")"_s);
    row({u"why"_s, u"17"_s});
    row({u"history"_s});
    row({u"history"_s, u"17"_s});
    row({u"history"_s, u"--type"_s, hidden});
    row({u"history"_s, u"--since"_s, hidden});
    row({u"history"_s, u"--verdict"_s, hidden});
    row({u"outages"_s, u"--since"_s, u"7d"_s});
    row({u"outages"_s, u"--since"_s, hidden});
    row({u"outages"_s, u"--type"_s, hidden + u'x'});
    row({u"settle"_s, u"--wait"_s, u"0"_s});
    row({u"settle"_s, u"--before"_s, hidden});
    row({u"settle"_s, u"--type"_s, hidden + u'x'});
    row({u"shape"_s});
    row({u"doctor"_s}, uR"(\x9b\u202e)"_s);
    row({u"export"_s}, uR"(\u001b[2J\r\n\u009b\u202e\u2028)"_s);
    row({u"types"_s, hidden});
    row({u"lint"_s, hidden});
    row({u"put"_s, hidden, u"-"_s});
    row({u"import"_s, hidden});
    row({u"export"_s, hidden + u'x'});
    row({u"bundle"_s, u"--output"_s, u"/nosuch/"_s + hidden});
    row({u"status"_s, u"--"_s + hidden});
    row({hidden});
}

void TestQueuectlLook::hiddenCharacters()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, shown);
    const QJsonObject object{{u"url"_s, u"http://127.0.0.1:1/"_s}, {hidden, hidden}};
    const QString text = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    till->database.put(hidden, text, hidden);
    till->database.put(u"heineken"_s, text, hidden);
    till->database.put(u"heineken"_s, u"no JSON "_s + hidden, hidden);
    till->database.query(u"UPDATE message SET statuscode = ?"_s, {hidden});
    till->setFailIds("{\"heineken\":3}");
    till->setSettings(u"\n[Spasibo]\n\u009b\u202e = 1\n"_s);
    const auto record = [](int id, const QString &type, const QString &verdict) {
        return Record{.id = id,
                      .type = type,
                      .verdict = verdict,
                      .kind = u"service"_s,
                      .status = 0,
                      .text = u"answer "_s + hidden,
                      .reference = hidden,
                      .card = hidden,
                      .secondsAgo = 0};
    };
    journal->put(record(1, hidden, u"kept"_s));
    journal->put(record(2, u"heineken"_s, u"kept"_s));
    journal->put(record(3, u"heineken"_s, u"kept"_s));
    journal->put(record(17, u"heineken"_s, hidden));
    journal->put(record(18, hidden, u"dropped"_s));
    journal->streak(hidden, 0, 60);
    journal->streak(u"heineken"_s, 0, 60);
    journal->fact(u"certificate"_s, hidden, u"1"_s, 60);
    journal->fact(u"clock"_s, hidden, u"900"_s, 60);

    const CommandResult outcome = till->run(arguments);
    QCOMPARE(hiddenIn(outcome.out), QString());
    QCOMPARE(hiddenIn(outcome.err), QString());
    const QString all = outcome.out + outcome.err;
    QVERIFY2(all.contains(shown), qPrintable(all));
    // The number of a number would be another text.
    QVERIFY2(!all.contains(uR"(\\x1b)"_s), qPrintable(all));
    if (arguments == QStringList{u"export"_s})
        return;
    const CommandResult json = till->run(arguments + QStringList{u"--json"_s});
    QCOMPARE(hiddenIn(json.out), QString());
    QCOMPARE(hiddenIn(json.err), QString());
}

void TestQueuectlLook::hiddenCharactersInJson()
{
    const QJsonObject object{{u"url"_s, u"http://127.0.0.1:1/"_s}, {hidden, hidden}};
    const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const int id = till->database.put(u"heineken"_s, QString::fromUtf8(text), hidden);
    const QJsonObject row = till->run({u"show"_s, QString::number(id), u"--json"_s}).json();
    QCOMPARE(row.value(u"cardNumber"_s).toString(), hidden);
    QCOMPARE(row.value(u"body"_s).toObject(), object);
    // The body over several lines is JSON too.
    const QString shown = till->run({u"show"_s, QString::number(id)}).out;
    QCOMPARE(QJsonDocument::fromJson(shown.mid(shown.indexOf(u'{')).toUtf8()).object(), object);

    const QString exported = till->run({u"export"_s}).out;
    QCOMPARE(hiddenIn(exported), QString());
    const QJsonObject record =
        QJsonDocument::fromJson(exported.section(u'\n', 0, 0).toUtf8()).object();
    QCOMPARE(record.value(u"cardnumber"_s).toString(), hidden);
    QCOMPARE(record.value(u"body"_s).toString().toUtf8(), text);
}

void TestQueuectlLook::hiddenCharactersInAQuestion()
{
    const int id = till->database.put(hidden, body);
    const CommandResult outcome = till->runOnTerminal({u"drop"_s, QString::number(id)}, "n\n");
    QCOMPARE(hiddenIn(outcome.out), QString());
    QVERIFY2(outcome.out.contains(shownHidden), qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, ExitCode::NotConfirmed);
}

void TestQueuectlLook::linesOfABodyCannotPassForOurs()
{
    const int id = put(u"heineken"_s, u"no JSON\nДоставлена"_s);
    const QString shown = till->run({u"show"_s, QString::number(id)}).out;
    QVERIFY2(shown.endsWith(u"no JSON\n    Доставлена\n"_s), qPrintable(shown));
}

void TestQueuectlLook::columnsHaveALargestWidth_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("status") << QStringList{u"status"_s};
    QTest::newRow("shape") << QStringList{u"shape"_s};
    QTest::newRow("list") << QStringList{u"list"_s, u"heineken"_s};
    QTest::newRow("history") << QStringList{u"history"_s};
    QTest::newRow("outages") << QStringList{u"outages"_s, u"--since"_s, u"7d"_s};
    QTest::newRow("settle") << QStringList{u"settle"_s, u"--wait"_s, u"0"_s};
}

void TestQueuectlLook::columnsHaveALargestWidth()
{
    QFETCH(const QStringList, arguments);
    const QString longText(10'000, u'т');
    till->database.put(longText, body, longText);
    till->database.put(u"heineken"_s, body, longText);
    till->setFailIds("{\"heineken\":2}");
    journal->put(
        {.id = 2, .verdict = u"kept"_s, .kind = u"network"_s, .text = longText, .secondsAgo = 0});
    journal->streak(u"heineken"_s, 0, 60);
    journal->put({.id = 3,
                  .type = longText,
                  .verdict = u"dropped"_s,
                  .text = longText,
                  .reference = longText,
                  .card = longText,
                  .secondsAgo = 0});
    const QString out = till->run(arguments).out;
    QVERIFY2(out.contains(QString(39, u'т') + u"…"_s), qPrintable(out));
    const QStringList lines = out.split(u'\n');
    for (const QString &line : lines)
        QVERIFY2(line.size() < 250, qPrintable(line));
    QVERIFY(till->run(arguments + QStringList{u"--json"_s}).out.contains(longText));
}

void TestQueuectlLook::unknownRow_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("not there") << u"99"_s << int(ExitCode::NotFound);
    QTest::newRow("zero") << u"0"_s << int(ExitCode::Usage);
    QTest::newRow("a word") << u"one"_s << int(ExitCode::Usage);
    QTest::newRow("too large") << u"99999999999"_s << int(ExitCode::Usage);
}

void TestQueuectlLook::unknownRow()
{
    put();
    QFETCH(const QString, id);
    QFETCH(const int, exitCode);
    for (const QStringList &command :
         {QStringList{u"show"_s, id}, QStringList{u"why"_s, id},
          QStringList{u"drop"_s, id, u"--yes"_s}, QStringList{u"requeue"_s, id, u"--yes"_s}}) {
        const CommandResult outcome = till->run(command);
        QCOMPARE(outcome.exitCode, exitCode);
        QVERIFY(outcome.err.contains(id));
        QCOMPARE(outcome.out, QString());
    }
    QCOMPARE(till->database.ids(), QList<int>{1});
}

void TestQueuectlLook::shapeGroups()
{
    put();
    till->setAge(put(), 1000);
    put(u"nosuch"_s);
    put(u"cardlab"_s, u"broken"_s);
    const QJsonObject shape = till->run({u"shape"_s, u"--json"_s}).json();
    QCOMPARE(shape.value(u"waiting"_s).toInt(), 4);
    QStringList groups;
    for (const QJsonValue &group : shape.value(u"rows"_s).toArray()) {
        const QJsonObject object = group.toObject();
        groups.append(u"%1 %2 %3 %4"_s.arg(
            object.value(u"type"_s).toString(), object.value(u"age"_s).toString(),
            object.value(u"cause"_s).toString(), QString::number(object.value(u"rows"_s).toInt())));
    }
    QCOMPARE(groups, (QStringList{u"cardlab minutes body 1"_s, u"heineken minutes turn 1"_s,
                                  u"heineken hour turn 1"_s, u"nosuch minutes no-handler 1"_s}));
}

void TestQueuectlLook::shapeTellsSinceWhen()
{
    for (int i = 0; i < 37; ++i)
        put();
    till->setAge(1, 7860);
    put(u"heineken"_s, u"{\"url\":\"https://other/a\"}"_s);
    till->setFailIds("{\"heineken\":37}");
    const QDateTime since = QDateTime::currentDateTime().addSecs(-3600);
    for (int id = 1; id <= 37; ++id)
        journal->put(refused(id, 0));
    journal->streak(u"heineken"_s, 5000, 3600);
    const QJsonObject shape = till->run({u"shape"_s, u"--json"_s}).json();
    const QJsonArray destinations = shape.value(u"destinations"_s).toArray();
    QCOMPARE(destinations.size(), 2);
    const QJsonObject down = destinations.at(0).toObject();
    QCOMPARE(down.value(u"destination"_s).toString(), u"127.0.0.1:8000"_s);
    QCOMPARE(down.value(u"state"_s).toString(), u"down"_s);
    QCOMPARE(down.value(u"rows"_s).toInt(), 37);
    QCOMPARE(destinations.at(1).toObject().value(u"state"_s).toString(), u"waiting"_s);
    const QString clock = since.date() == QDate::currentDate()
                              ? since.toString(u"HH:mm"_s)
                              : since.toString(u"yyyy-MM-dd HH:mm"_s);
    QCOMPARE(till->run({u"shape"_s}).out.section(u'\n', 0, 0),
             u"127.0.0.1:8000: down since %1, rows: 37, oldest 2 h 11 min"_s.arg(clock));
}

void TestQueuectlLook::shapeJoinsTypes()
{
    put();
    put(u"cardlab"_s);
    till->setFailIds("{\"heineken\":1,\"cardlab\":2}");
    journal->streak(u"heineken"_s, 0, 3600);
    journal->streak(u"cardlab"_s, 0, 1800);
    const QJsonArray destinations =
        till->run({u"shape"_s, u"--json"_s}).json().value(u"destinations"_s).toArray();
    QCOMPARE(destinations.size(), 1);
    const QJsonObject destination = destinations.at(0).toObject();
    QCOMPARE(destination.value(u"rows"_s).toInt(), 2);
    QCOMPARE(destination.value(u"types"_s).toArray(), (QJsonArray{u"cardlab"_s, u"heineken"_s}));
    const QDateTime since =
        QDateTime::fromString(destination.value(u"since"_s).toString(), Qt::ISODate);
    // The first of both to fail.
    QVERIFY(since.secsTo(QDateTime::currentDateTime()) >= 3600);
}

void TestQueuectlLook::shapeKeepsTypesWithoutAddressApart()
{
    put(u"heineken"_s, u"{}"_s);
    put(u"cardlab"_s, u"{}"_s);
    journal->put(refused(1, 0));
    const QJsonArray destinations =
        till->run({u"shape"_s, u"--json"_s}).json().value(u"destinations"_s).toArray();
    QCOMPARE(destinations.size(), 2);
    for (const QJsonValue &destination : destinations) {
        QVERIFY(destination[u"destination"_s].isNull());
        QCOMPARE(destination[u"types"_s].toArray().size(), 1);
    }
    const QString out = till->run({u"shape"_s}).out;
    QVERIFY2(out.contains(u"heineken (no address in the row): down"_s), qPrintable(out));
    QVERIFY2(out.contains(u"cardlab (no address in the row): waits"_s), qPrintable(out));
    const QString reason = till->run({u"why"_s, u"1"_s}).out;
    QVERIFY2(!reason.contains(u"()"_s), qPrintable(reason));
}

void TestQueuectlLook::shapeWithoutHistory()
{
    journal->close();
    QVERIFY(QFile::remove(journal->file()));
    put();
    till->setFailIds("{\"heineken\":1}");
    const CommandResult outcome = till->run({u"shape"_s});
    QVERIFY2(outcome.out.startsWith(u"127.0.0.1:8000: refuses, rows: 1"), qPrintable(outcome.out));
}

QJsonObject TestQueuectlLook::why(int id)
{
    const CommandResult outcome = till->run({u"why"_s, QString::number(id), u"--json"_s});
    if (outcome.exitCode != ExitCode::Done)
        qWarning("%s", qPrintable(outcome.err));
    return outcome.json();
}

void TestQueuectlLook::why_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("cause");
    QTest::newRow("refused") << u"network"_s << 0 << refusal << refusal << u"network"_s;
    QTest::newRow("401") << u"credentials"_s << 401 << u"нет доступа"_s
                         << u"HTTP 401, нет доступа"_s << u"credentials"_s;
    QTest::newRow("400") << u"request"_s << 400 << u"код 400"_s << u"код 400"_s << u"request"_s;
    QTest::newRow("503") << u"service"_s << 503 << QString() << u"HTTP 503"_s << u"service"_s;
    QTest::newRow("certificate") << u"certificate"_s << 0 << u"сертификат не прошёл проверку"_s
                                 << u"сертификат не прошёл проверку"_s << u"certificate"_s;
    QTest::newRow("a kind of another version")
        << u"weather"_s << 0 << u"гроза"_s << u"гроза"_s << u"other"_s;
    QTest::newRow("a secret") << u"service"_s << 0 << u"нет, token=abc"_s << u"нет, token=***"_s
                              << u"service"_s;
}

void TestQueuectlLook::why()
{
    QFETCH(const QString, kind);
    QFETCH(const int, status);
    QFETCH(const QString, words);
    QFETCH(const QString, answer);
    const int id = put();
    till->setAge(id, 600);
    journal->put({.id = id,
                  .verdict = u"kept"_s,
                  .kind = kind,
                  .status = status,
                  .text = words,
                  .attempts = 3});
    const QJsonObject reason = why(id);
    QTEST(reason.value(u"cause"_s).toString(), "cause");
    QVERIFY2(reason.value(u"lastAnswer"_s)
                 .toString()
                 .contains(u"was \"%1\" (attempts: 3)"_s.arg(answer)),
             qPrintable(reason.value(u"lastAnswer"_s).toString()));
    QCOMPARE(reason.value(u"waiting"_s), QJsonValue(true));
    QCOMPARE(reason.value(u"attempts"_s), QJsonValue(3));
    QCOMPARE(reason.value(u"who"_s).toString(), u"engineer"_s);
    QCOMPARE(reason.value(u"serviceRunning"_s), QJsonValue(false));
    QVERIFY(reason.value(u"nextTryEarliest"_s).isNull());
    QVERIFY(reason.value(u"actor"_s).toString().contains(u"systemctl start queue"));
    const QString sentence = reason.value(u"sentence"_s).toString();
    for (const QString &part : {u"lastAnswer"_s, u"rule"_s, u"nextTry"_s, u"actor"_s})
        QVERIFY2(sentence.contains(reason.value(part).toString()), qPrintable(sentence));
    QCOMPARE(till->run({u"why"_s, u"1"_s}).out.count(u'\n'), 1);
}

/// The program on the port says nothing about the service, which delivers without the port.
void TestQueuectlLook::portOfAnotherProgram()
{
    LoopbackServer stranger;
    stranger.play(QList<LoopbackServer::Reply>(3, LoopbackServer::answer(200, "{}")));
    till->setSettings(u"port = %1\n"_s.arg(stranger.url(u"/"_s).port()));
    const int id = put();
    const QJsonObject reason = why(id);
    QCOMPARE(reason.value(u"serviceRunning"_s), QJsonValue(false));
    QVERIFY(reason.value(u"nextTry"_s)
                .toString()
                .startsWith(u"the time of the next attempt is unknown"));
    QVERIFY(reason.value(u"nextTryEarliest"_s).isNull());
    QVERIFY(reason.value(u"actor"_s).toString().contains(u"ss -ltnp"));
    const QJsonObject status = till->run({u"status"_s, u"--json"_s}).json();
    QCOMPARE(status.value(u"control"_s).toObject().value(u"state"_s).toString(), u"other"_s);
    QVERIFY(till->run({u"doctor"_s}).out.contains(u"a program other than the service listens"));
    // A number that is not a port is not cut to 16 bits, which could be another program's port.
    till->setSettings(u"port = %1\n"_s.arg(65536 + stranger.url(u"/"_s).port()));
    QVERIFY(why(id).value(u"actor"_s).toString().contains(u"systemctl start queue"));
}

void TestQueuectlLook::whyNamesTheRule()
{
    const catalogue::Type *type = catalogue::find(u"heineken"_s);
    QVERIFY(type);
    QStringList kept;
    for (const catalogue::Outcome &outcome : type->outcomes) {
        if (outcome.verdict == u"kept")
            kept.append(outcome.when.chopped(1));
    }
    put();
    const auto ruleAfter = [this](const QString &kind) {
        journal->run(u"DELETE FROM outcome"_s);
        journal->put({.verdict = u"kept"_s, .kind = kind, .secondsAgo = 0});
        return why(1).value(u"rule"_s).toString();
    };
    const QString unreachable = ruleAfter(u"network"_s);
    const QString broken = ruleAfter(u"service"_s);
    QVERIFY(unreachable != broken);
    for (const QString &rule : {unreachable, broken})
        QVERIFY2(std::any_of(kept.cbegin(), kept.cend(),
                             [&rule](const QString &when) { return rule.contains(when); }),
                 qPrintable(rule));
}

/// Several rules of the type speak of such failures.
void TestQueuectlLook::whyNamesTheRuleOfTheReply()
{
    const int id = put(u"raiffeisensbp"_s);
    const auto ruleAfter = [&](int status, const QString &reason) {
        journal->run(u"DELETE FROM outcome"_s);
        journal->put({.id = id,
                      .type = u"raiffeisensbp"_s,
                      .verdict = u"kept"_s,
                      .kind = u"service"_s,
                      .status = status,
                      .text = reason,
                      .secondsAgo = 0});
        return why(id).value(u"rule"_s).toString();
    };
    const QString running = ruleAfter(200, u"возврат ещё выполняется"_s);
    QVERIFY2(running.contains(u"a refund that is IN_PROGRESS"), qPrintable(running));
    const QString broken = ruleAfter(503, u"Сервер ответил ошибкой, код состояния HTTP 503"_s);
    QVERIFY2(broken.contains(u"Any other HTTP error"), qPrintable(broken));
}

void TestQueuectlLook::whyCountsRowsBefore()
{
    const int nosuch = put(u"nosuch"_s);
    const int broken = put(u"cardlab"_s, u"broken"_s);
    const int fresh = put();
    QCOMPARE(why(nosuch).value(u"cause"_s).toString(), u"no-handler"_s);
    QCOMPARE(why(broken).value(u"cause"_s).toString(), u"body"_s);
    const QJsonObject reason = why(fresh);
    QCOMPARE(reason.value(u"cause"_s).toString(), u"turn"_s);
    QVERIFY(reason.value(u"lastAnswer"_s).toString().contains(u"not been tried"));
}

void TestQueuectlLook::unknownFactsAreNamed_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("cause");
    QTest::addColumn<QString>("state");
    const QString unknown = u"not known here: "_s;
    QTest::newRow("nothing was tried")
        << QString() << u"it has not been tried yet"_s << u"turn"_s << u"read"_s;
    QTest::newRow("others were tried")
        << u"others"_s << u"it has not been tried yet"_s << u"turn"_s << u"read"_s;
    QTest::newRow("no file") << u"missing"_s << unknown + u"There is no delivery journal yet"_s
                             << u"unknown"_s << u"missing"_s;
    QTest::newRow("file is closed")
        << u"closed"_s << unknown + u"No rights: this account cannot read the delivery journal"_s
        << u"unknown"_s << u"denied"_s;
    QTest::newRow("file is damaged")
        << u"damaged"_s << unknown + u"The delivery journal"_s << u"unknown"_s << u"damaged"_s;
    QTest::newRow("file is newer")
        << u"newer"_s << unknown + u"The delivery journal"_s << u"unknown"_s << u"newer"_s;
    QTest::newRow("file was pruned")
        << u"pruned"_s << unknown + u"the delivery journal begins after"_s << u"unknown"_s
        << u"read"_s;
    QTest::newRow("pruned before the row")
        << u"pruned early"_s << u"it has not been tried yet"_s << u"turn"_s << u"read"_s;
    QTest::newRow("switched off") << u"off"_s << unknown + u"journal:enabled is off"_s
                                  << u"unknown"_s << u"read"_s;
}

void TestQueuectlLook::unknownFactsAreNamed()
{
    QFETCH(const QString, what);
    QFETCH(const QString, answer);
    QFETCH(const QString, state);
    const int id = put();
    till->setAge(id, 3000);
    till->obeysFileRights = true;
    if (what == u"others" || what.startsWith(u"pruned"))
        for (const int other : {7, 8})
            journal->put({.id = other, .secondsAgo = what == u"pruned early" ? 5000 : 60});
    if (what.startsWith(u"pruned")) {
        journal->run(u"DELETE FROM outcome WHERE messageid = 7"_s);
        journal->fact(u"pruned"_s, u""_s, u""_s, 0);
    }
    if (what == u"newer")
        journal->run(u"PRAGMA user_version = 2"_s);
    if (what == u"off")
        till->setSettings(u"[journal]\nenabled = no\n"_s);
    journal->close();
    if (what == u"missing")
        QVERIFY(QFile::remove(journal->file()));
    if (what == u"closed")
        QVERIFY(QFile::setPermissions(journal->file(), {}));
    if (what == u"damaged")
        till->write(u"/tallocash/cash/queue/journal.db"_s, QByteArray(9000, 'x'));
    const QJsonObject reason = why(id);
    QVERIFY2(reason.value(u"lastAnswer"_s).toString().contains(answer),
             qPrintable(reason.value(u"lastAnswer"_s).toString()));
    QTEST(reason.value(u"cause"_s).toString(), "cause");
    const QJsonObject status = till->run({u"status"_s, u"--json"_s}).json();
    QCOMPARE(status.value(u"journal"_s)[u"state"_s].toString(), state);
    QCOMPARE(status.value(u"deliveredToday"_s).isNull(), state != u"read");
    const bool isRead = state == u"read";
    for (const QString &command : {u"status"_s, u"shape"_s}) {
        const QString out = till->run({command}).out;
        QVERIFY2(out.contains(isRead ? u"Today delivered: "_s : u"elivery journal"_s),
                 qPrintable(out));
    }
    // In the operator's language.
    const QString russianStatus = till->run({u"status"_s}, {}, russian).out;
    QVERIFY2(russianStatus.contains(isRead ? u"Сегодня доставлено: "_s : u"урнал"_s),
             qPrintable(russianStatus));
}

void TestQueuectlLook::noRightsIsNotNoDatabase_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("file") << u"/tallocash/cash/queue/queues.db"_s;
    QTest::newRow("folder") << u"/tallocash/cash/queue"_s;
}

void TestQueuectlLook::noRightsIsNotNoDatabase()
{
    QFETCH(const QString, path);
    put();
    till->obeysFileRights = true;
    const QString full = till->database.root() + path;
    const QFile::Permissions before = QFile::permissions(full);
    QVERIFY(QFile::setPermissions(full, {}));
    const auto reset = qScopeGuard([&] { QFile::setPermissions(full, before); });
    const CommandResult list = till->run({u"list"_s, u"heineken"_s});
    QCOMPARE(list.exitCode, ExitCode::NoDatabase);
    QVERIFY2(list.err.startsWith(u"No rights: this account cannot read the database"),
             qPrintable(list.err));
    QVERIFY(till->run({u"status"_s}).out.contains(u"No rights: this account cannot read the"));
}

void TestQueuectlLook::failIdsMayNotBeRead()
{
    put();
    till->setFailIds("{\"heineken\":1}");
    till->obeysFileRights = true;
    QVERIFY(QFile::setPermissions(till->database.root() + u"/tallocash/cash/queue/ids.json"_s, {}));
    const QString status = till->run({u"status"_s}).out;
    QVERIFY2(status.contains(u"ids.json, so the fail ids are not known"), qPrintable(status));
}

void TestQueuectlLook::whyNamesTheAnswerToThisRow()
{
    const int first = put(u"heineken"_s, u"{\"url\":\"http://a\"}"_s);
    const int second = put(u"heineken"_s, u"{\"url\":\"http://b\"}"_s);
    for (const int id : {first, second})
        till->setAge(id, 600);
    journal->put({.id = first, .verdict = u"kept"_s, .text = u"первый ответ"_s});
    journal->put({.id = second, .verdict = u"kept"_s, .text = u"второй ответ"_s});
    // Records of other messages: another type, and an earlier table with the same number.
    journal->put({.id = first, .type = u"cardlab"_s, .verdict = u"kept"_s, .text = u"чужой"_s});
    const int third = put();
    till->setAge(third, 600);
    journal->put({.id = third, .verdict = u"kept"_s, .text = u"прежний"_s, .secondsAgo = 900});
    QVERIFY(why(first).value(u"lastAnswer"_s).toString().contains(u"первый ответ"));
    QVERIFY(why(second).value(u"lastAnswer"_s).toString().contains(u"второй ответ"));
    QVERIFY(why(third).value(u"lastAnswer"_s).toString().contains(u"not been tried yet"));
}

void TestQueuectlLook::whyOfAFinishedRow()
{
    const int id = put();
    journal->put({.id = id, .secondsAgo = 0});
    const QJsonObject reason = why(id);
    QCOMPARE(reason.value(u"cause"_s).toString(), u"repeat"_s);
    QVERIFY(reason.value(u"lastAnswer"_s)
                .toString()
                .contains(u"the journal says that it was delivered"));
    const QString shape = till->run({u"shape"_s}).out;
    QVERIFY2(shape.startsWith(u"127.0.0.1:8000: finished, row not deleted"_s), qPrintable(shape));
}

void TestQueuectlLook::whyOfADeletedRow_data()
{
    QTest::addColumn<QString>("verdict");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("translated");
    QTest::newRow("delivered") << u"delivered"_s
                               << u"Message 17 (heineken, 4711, card ****0017) was delivered at "_s
                               << u"Сообщение 17 (heineken, 4711, карта ****0017) доставлено в "_s;
    QTest::newRow("dropped")
        << u"dropped"_s << u"Message 17 (heineken, 4711, card ****0017) was dropped at "_s
        << u"Сообщение 17 (heineken, 4711, карта ****0017) снято с доставки в "_s;
    QTest::newRow("kept") << u"kept"_s << u"Since then its row was deleted or moved by hand"_s
                          << u"С тех пор строки нет"_s;
}

void TestQueuectlLook::whyOfADeletedRow()
{
    QFETCH(const QString, verdict);
    QFETCH(const QString, english);
    QFETCH(const QString, translated);
    till->database.ids();
    journal->put({.id = 17,
                  .verdict = verdict,
                  .kind = u"service"_s,
                  .text = u"password=hush, отказ"_s,
                  .reference = u"4711"_s,
                  .card = u"****0017"_s,
                  .attempts = 3,
                  .spanSeconds = 30});
    const CommandResult outcome = till->run({u"why"_s, u"17"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY2(outcome.out.contains(english), qPrintable(outcome.out));
    QVERIFY2(outcome.out.contains(u"at attempt 3, the first one at "_s), qPrintable(outcome.out));
    QVERIFY2(outcome.out.contains(u"password=***, отказ"_s), qPrintable(outcome.out));
    const QString inRussian = till->run({u"why"_s, u"17"_s}, {}, russian).out;
    QVERIFY2(inRussian.contains(translated), qPrintable(inRussian));
    const QJsonObject reason = why(17);
    QCOMPARE(reason.value(u"waiting"_s), QJsonValue(false));
    QCOMPARE(reason.value(u"verdict"_s).toString(), verdict);
    QCOMPARE(reason.value(u"history"_s).toArray().size(), 1);
}

void TestQueuectlLook::whyOfAnUnknownRow()
{
    till->database.ids();
    const CommandResult outcome = till->run({u"why"_s, u"9"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NotFound);
    QCOMPARE(outcome.err, u"There is no row 9, and there is no record of it.\n"_s);
    journal->close();
    QVERIFY(QFile::remove(journal->file()));
    QVERIFY(till->run({u"why"_s, u"9"_s}).err.contains(u"There is no delivery journal yet"));
}

void TestQueuectlLook::todayByType()
{
    put();
    // Some seconds ago could be yesterday, just after midnight.
    for (int id = 10; id < 13; ++id)
        journal->put({.id = id, .secondsAgo = 0});
    journal->put({.id = 20, .verdict = u"dropped"_s, .secondsAgo = 0});
    journal->put({.id = 30, .type = u"cardlab"_s, .verdict = u"dropped"_s, .secondsAgo = 0});
    journal->put({.id = 40, .type = u"cardlab"_s, .secondsAgo = 90'000});
    journal->run(u"UPDATE outcome SET last = ?, first = ? WHERE messageid < 40"_s,
                 {QDateTime::currentMSecsSinceEpoch(), QDateTime::currentMSecsSinceEpoch()});
    const QJsonObject status = till->run({u"status"_s, u"--json"_s}).json();
    QCOMPARE(status.value(u"deliveredToday"_s), QJsonValue(3));
    QCOMPARE(status.value(u"droppedToday"_s), QJsonValue(2));
    QCOMPARE(status.value(u"today"_s).toArray().size(), 2);
    QCOMPARE(status.value(u"types"_s)[0][u"deliveredToday"_s], QJsonValue(3));
    QCOMPARE(status.value(u"types"_s)[0][u"droppedToday"_s], QJsonValue(1));
    for (const QString &command : {u"status"_s, u"shape"_s}) {
        const QString out = till->run({command}).out;
        QVERIFY2(out.contains(u"Today delivered: 3, dropped: 2\n"_s), qPrintable(out));
        QVERIFY2(out.contains(u"Dropped: cardlab: 1, heineken: 1 (queuectl history"_s),
                 qPrintable(out));
    }
    QVERIFY(till->run({u"shape"_s}).out.contains(u"; today delivered: 3, dropped: 1\n"_s));
}

void TestQueuectlLook::speaksRussian()
{
    put();
    const CommandResult status = till->run({u"status"_s}, {}, russian);
    QVERIFY2(status.out.contains(u"База данных"), qPrintable(status.out));
    const CommandResult reason = till->run({u"why"_s, u"1"_s}, {}, russian);
    QVERIFY2(reason.out.startsWith(u"Строка 1 (heineken) ждёт"), qPrintable(reason.out));
    const CommandResult unknown = till->run({u"show"_s, u"9"_s}, {}, russian);
    QVERIFY2(unknown.err.startsWith(u"Строки 9 нет"), qPrintable(unknown.err));
    // LC_ALL takes precedence over LC_MESSAGES, and that over LANG.
    const CommandResult english =
        till->run({u"status"_s}, {}, {{u"LC_ALL"_s, u"C"_s}, {u"LANG"_s, u"ru_RU.UTF-8"_s}});
    QVERIFY(english.out.contains(u"Database"));
    const CommandResult byLang =
        till->run({u"status"_s}, {},
                  {{u"LC_ALL"_s, {}}, {u"LC_MESSAGES"_s, {}}, {u"LANG"_s, u"ru_RU.UTF-8"_s}});
    QVERIFY(byLang.out.contains(u"База данных"));
    // JSON has the same members whatever the language.
    QCOMPARE(till->run({u"status"_s, u"--json"_s}, {}, russian).json().keys(),
             till->run({u"status"_s, u"--json"_s}).json().keys());
}

void TestQueuectlLook::coloursOnTerminalOnly()
{
    put();
    QVERIFY(till->runOnTerminal({u"status"_s}).out.contains(u"\u001b["));
    QVERIFY(!till->runOnTerminal({u"status"_s}, {}, {{u"NO_COLOR"_s, u"1"_s}})
                 .out.contains(u"\u001b["));
    QVERIFY(!till->runOnTerminal({u"status"_s, u"--json"_s}).out.contains(u"\u001b["));
    QVERIFY(!till->run({u"status"_s}).out.contains(u"\u001b["));
}

void TestQueuectlLook::looksOnly()
{
    put();
    const auto before = till->database.query(u"SELECT * FROM message"_s);
    for (const QString &command : {u"status"_s, u"shape"_s, u"doctor"_s, u"export"_s, u"history"_s})
        till->run({command});
    till->run({u"why"_s, u"1"_s});
    till->run({u"show"_s, u"1"_s});
    QCOMPARE(till->database.query(u"SELECT * FROM message"_s), before);
}

QTEST_GUILESS_MAIN(TestQueuectlLook)
#include "tst_queuectllook.moc"
