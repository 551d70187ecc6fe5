#include "rig/mariadbserver.h"
#include "tests/tools/queuectl/till.h"

#include "tools/queuectl/failure.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QScopeGuard>
#include <QtTest>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;
using rig::MariaDbServer;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\",\"body\":\"Пиво\"}"_s;

} // namespace

/// The commands that write, on an SQLite file and on a MariaDB server.
class TestQueuectlWrite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void putWrites_data() { databases(); }
    void putWrites();
    void putFromStandardInput_data() { databases(); }
    void putFromStandardInput();
    void putRefuses_data();
    void putRefuses();
    void putOfUnknownKey();
    void putForced();
    void lint_data();
    void lint();
    void lintOfBody();
    void lintOfCertificate();
    void drop_data() { databases(); }
    void drop();
    void requeue_data() { databases(); }
    void requeue();
    void requeueKeepsTheBytes_data() { databases(); }
    void requeueKeepsTheBytes();
    void questions_data();
    void questions();
    void noTerminalToAskOn();
    void roundTrip_data() { databases(); }
    void roundTrip();
    void exportOfType_data() { databases(); }
    void exportOfType();
    void exportFile();
    void exportIntoFullDisk();
    void exportWhoseEndDoesNotFit();
    void resultsIntoAPipe_data();
    void resultsIntoAPipe();
    void importIsAllOrNothing_data();
    void importIsAllOrNothing();
    void importFailsHalfway_data() { databases(); }
    void importFailsHalfway();
    void importExceptions();
    void progressOnTerminalOnly();
    void lockedDatabase();

private:
    static void databases();
    int put(const QString &type = u"heineken"_s, const QString &text = body);
    QStringList rows();

    static inline std::unique_ptr<MariaDbServer> server;
    std::unique_ptr<Till> till;
};

void TestQueuectlWrite::databases()
{
    QTest::addColumn<bool>("onServer");
    QTest::newRow("SQLite") << false;
    QTest::newRow("MariaDB") << true;
}

void TestQueuectlWrite::initTestCase()
{
    server = std::make_unique<MariaDbServer>();
}

void TestQueuectlWrite::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    const QString tag = QString::fromLatin1(QTest::currentDataTag());
    if (tag == u"MariaDB") {
        till->setSettings(server->settings());
        server->run(u"TRUNCATE queues.message"_s);
    }
    till->database.ids();
}

int TestQueuectlWrite::put(const QString &type, const QString &text)
{
    return till->database.put(type, text, u"5"_s);
}

/// The rows as `id type body card`.
QStringList TestQueuectlWrite::rows()
{
    QStringList result;
    const auto all = till->database.query(
        u"SELECT messageid, type, body, cardnumber FROM message ORDER BY messageid"_s);
    for (const QVariantList &row : all)
        result.append(u"%1 %2 %3 %4"_s.arg(row[0].toString(), row[1].toString(), row[2].toString(),
                                           row[3].toString()));
    return result;
}

void TestQueuectlWrite::putWrites()
{
    const QString file = till->write(u"/body.json"_s, body.toUtf8());
    const CommandResult outcome =
        till->run({u"put"_s, u"heineken"_s, file, u"--card"_s, u"77"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"id"_s).toInt(), 1);
    QCOMPARE(outcome.json().value(u"type"_s).toString(), u"heineken"_s);
    QCOMPARE(rows(), QStringList{u"1 heineken %1 77"_s.arg(body)});
    QVERIFY(
        till->database.query(u"SELECT creationtime FROM message"_s)[0][0].toDateTime().isValid());
}

void TestQueuectlWrite::putFromStandardInput()
{
    const CommandResult outcome = till->run({u"put"_s, u"heineken"_s, u"-"_s}, body.toUtf8());
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(rows(), QStringList{u"1 heineken %1 "_s.arg(body)});
}

void TestQueuectlWrite::putRefuses_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    const int found = ExitCode::Found;
    const QByteArray good = body.toUtf8();
    QTest::newRow("unknown type") << u"heinekn"_s << good << int(ExitCode::NotFound)
                                  << u"did you mean heineken?"_s;
    QTest::newRow("no JSON") << u"heineken"_s << QByteArray("{\n\"a\": }") << found
                             << u"the body is not JSON, line 2"_s;
    QTest::newRow("no object") << u"heineken"_s << QByteArray("[1]") << found
                               << u"the body is not a JSON object"_s;
    QTest::newRow("empty") << u"heineken"_s << QByteArray() << found << u"the body is not JSON"_s;
    QTest::newRow("no address") << u"heineken"_s << QByteArray("{\"url\":\"sales\",\"body\":\"1\"}")
                                << found << u"'sales' is not an http or https address"_s;
    QTest::newRow("a key is missing") << u"heineken"_s << QByteArray("{\"url\":\"http://a\"}")
                                      << found << u"is missing, a text"_s;
    QTest::newRow("another kind") << u"heineken"_s
                                  << QByteArray("{\"url\":\"http://a\",\"body\":{}}") << found
                                  << u"should be a text"_s;
    QTest::newRow("no time") << u"heineken"_s
                             << QByteArray(
                                    "{\"url\":\"http://a\",\"body\":\"1\",\"timeout\":\"soon\"}")
                             << found << u"'soon' is not a number of seconds"_s;
}

void TestQueuectlWrite::putRefuses()
{
    QFETCH(const QString, type);
    QFETCH(const QByteArray, content);
    QFETCH(const QString, reason);
    const QString file = till->write(u"/body.json"_s, content);
    const CommandResult outcome = till->run({u"put"_s, type, file});
    QTEST(outcome.exitCode, "exitCode");
    QVERIFY2((outcome.out + outcome.err).contains(reason), qPrintable(outcome.out + outcome.err));
    QCOMPARE(rows(), QStringList());
    QCOMPARE(till->run({u"put"_s, u"heineken"_s, u"/no/such/file"_s}).exitCode, ExitCode::NotFound);
}

void TestQueuectlWrite::putOfUnknownKey()
{
    // It does no harm, but is reported.
    const QString file =
        till->write(u"/body.json"_s, "{\"url\":\"http://a\",\"body\":\"1\",\"heders\":{}}");
    const CommandResult outcome = till->run({u"put"_s, u"heineken"_s, file, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    const QJsonObject finding = outcome.json().value(u"findings"_s).toArray().at(0).toObject();
    QCOMPARE(finding.value(u"state"_s).toString(), u"warning"_s);
    QCOMPARE(finding.value(u"key"_s).toString(), u"heders"_s);
    QVERIFY(finding.value(u"text"_s).toString().contains(u"did you mean headers?"));
    QCOMPARE(rows().size(), 1);
}

void TestQueuectlWrite::putForced()
{
    const QString file = till->write(u"/body.json"_s, "broken");
    const CommandResult refused = till->run({u"put"_s, u"heineken"_s, file, u"--json"_s});
    QVERIFY(refused.json().value(u"id"_s).isNull());
    QCOMPARE(refused.json().value(u"findings"_s).toArray().size(), 1);
    QCOMPARE(till->run({u"put"_s, u"heineken"_s, file, u"--force"_s}).exitCode, ExitCode::Done);
    QCOMPARE(rows(), QStringList{u"1 heineken broken "_s});
}

void TestQueuectlWrite::lint_data()
{
    QTest::addColumn<QByteArray>("row");
    QTest::addColumn<QString>("finding");
    const QByteArray front = R"({"type":"heineken","body":)";
    QTest::newRow("good") << front + body.toUtf8() + "}" << QString();
    QTest::newRow("body as text") << front + R"("{\"url\":\"http://a\",\"body\":\"1\"}"})"
                                  << QString();
    QTest::newRow("unknown type") << QByteArray(R"({"type":"heinekn","body":{}})")
                                  << u"no handler for type 'heinekn'; did you mean heineken?"_s;
    QTest::newRow("broken body") << front + R"("{"})" << u"the body is not JSON"_s;
    QTest::newRow("body of another kind") << front + "5}" << u"the body is not a JSON object"_s;
    QTest::newRow("bad address") << front + R"({"url":"ftp://a/b","body":"1"}})"
                                 << u"'ftp://a/b' is not an http or https address"_s;
    QTest::newRow("long card") << front + body.toUtf8() + R"(,"cardnumber":")"
                                      + QByteArray(129, '1') + "\"}"
                               << u"longer than 128 characters"_s;
}

void TestQueuectlWrite::lint()
{
    QFETCH(const QByteArray, row);
    QFETCH(const QString, finding);
    const QString file = till->write(u"/row.json"_s, row);
    const CommandResult outcome = till->run({u"lint"_s, file, u"--json"_s});
    QCOMPARE(outcome.exitCode, finding.isEmpty() ? ExitCode::Done : ExitCode::Found);
    const QJsonObject result = outcome.json();
    QCOMPARE(result.value(u"good"_s).toBool(), finding.isEmpty());
    QStringList texts;
    for (const QJsonValue &each : result.value(u"findings"_s).toArray()) {
        if (each.toObject().value(u"state"_s).toString() == u"error")
            texts.append(each.toObject().value(u"text"_s).toString());
    }
    QVERIFY2(texts.join(u'|').contains(finding), qPrintable(texts.join(u'|')));
    QCOMPARE(texts.isEmpty(), finding.isEmpty());
    QCOMPARE(rows(), QStringList());
}

void TestQueuectlWrite::lintOfBody()
{
    const QString file = till->write(u"/body.json"_s, body.toUtf8());
    QCOMPARE(till->run({u"lint"_s, file, u"--type"_s, u"heineken"_s}).exitCode, ExitCode::Done);
    const CommandResult outcome = till->run({u"lint"_s, file});
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY(outcome.out.contains(u"--type"));
    QCOMPARE(till->run({u"lint"_s, u"/no/such/file"_s}).exitCode, ExitCode::NotFound);
}

void TestQueuectlWrite::lintOfCertificate()
{
    const QString certificate = till->write(u"/client.pem"_s, "x");
    const auto check = [this](const QString &path) {
        const QString row =
            u"{\"type\":\"heineken\",\"body\":{\"url\":\"http://a\",\"body\":\"1\",\"cert\":\"%1\"}}"_s;
        return till->run({u"lint"_s, till->write(u"/row.json"_s, row.arg(path).toUtf8())});
    };
    QVERIFY(!check(certificate).out.contains(u"client.pem"));
    const CommandResult outcome = check(u"/no/such.pem"_s);
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY2(outcome.out.contains(u"there is no file '/no/such.pem'"), qPrintable(outcome.out));
}

void TestQueuectlWrite::drop()
{
    put();
    put();
    const CommandResult outcome = till->run({u"drop"_s, u"1"_s, u"--yes"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"dropped"_s), QJsonValue(true));
    QCOMPARE(outcome.json().value(u"id"_s).toInt(), 1);
    QCOMPARE(till->database.ids(), QList<int>{2});
    QCOMPARE(till->run({u"drop"_s, u"1"_s, u"--yes"_s}).exitCode, ExitCode::NotFound);
}

void TestQueuectlWrite::requeue()
{
    put();
    put(u"cardlab"_s);
    put();
    till->setAge(1, 3600);
    const auto times = [this](int id) {
        return till->database.query(u"SELECT creationtime FROM message WHERE messageid = ?"_s, {id})
            .value(0)
            .value(0);
    };
    const QVariant time = times(1);
    const CommandResult outcome = till->run({u"requeue"_s, u"1"_s, u"--yes"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"id"_s).toInt(), 4);
    QCOMPARE(outcome.json().value(u"formerId"_s).toInt(), 1);
    QCOMPARE(till->database.ids(u"heineken"_s), (QList<int>{3, 4}));
    QCOMPARE(rows().last(), u"4 heineken %1 5"_s.arg(body));
    // The age of the row does not change.
    QCOMPARE(times(4), time);
    QVERIFY(time.isValid());
    QCOMPARE(till->run({u"requeue"_s, u"1"_s, u"--yes"_s}).exitCode, ExitCode::NotFound);
    QCOMPARE(rows().size(), 3);
}

void TestQueuectlWrite::requeueKeepsTheBytes()
{
    const QString strange = u"{ \"a\" : 1.10,\n \"emoji\":\"😀 %1\" } "_s;
    put(u"heineken"_s, strange);
    till->database.query(u"UPDATE message SET statuscode = '7'"_s);
    QCOMPARE(till->run({u"requeue"_s, u"1"_s, u"--yes"_s}).exitCode, ExitCode::Done);
    const auto row =
        till->database.query(u"SELECT body, cardnumber, statuscode FROM message"_s).value(0);
    QCOMPARE(row[0].toString(), strange);
    QCOMPARE(row[1].toString(), u"5"_s);
    QCOMPARE(row[2].toString(), u"7"_s);
}

void TestQueuectlWrite::questions_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("isDone");
    for (const QString &command : {u"drop"_s, u"requeue"_s}) {
        const auto row = [&command](const char *answer) -> QTestData & {
            return QTest::addRow("%s %s", qPrintable(command), answer);
        };
        row("yes") << command << QByteArray("y\n") << true;
        row("a Russian yes") << command << QByteArray("да\n") << true;
        row("no") << command << QByteArray("n\n") << false;
        row("nothing") << command << QByteArray("\n") << false;
        row("the end") << command << QByteArray("\x04") << false;
    }
}

void TestQueuectlWrite::questions()
{
    QFETCH(const QString, command);
    QFETCH(const QByteArray, answer);
    QFETCH(const bool, isDone);
    put();
    const CommandResult outcome = till->runOnTerminal({command, u"1"_s}, answer);
    QVERIFY2(outcome.out.contains(u"row 1 (type heineken"), qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, isDone ? ExitCode::Done : ExitCode::NotConfirmed);
    QCOMPARE(till->database.ids() == QList<int>{1}, !isDone);
}

void TestQueuectlWrite::noTerminalToAskOn()
{
    put();
    for (const QString &command : {u"drop"_s, u"requeue"_s}) {
        const CommandResult outcome = till->run({command, u"1"_s}, "y\n");
        QCOMPARE(outcome.exitCode, ExitCode::NotConfirmed);
        QVERIFY(outcome.err.contains(u"--yes"));
    }
    QCOMPARE(till->database.ids(), QList<int>{1});
}

void TestQueuectlWrite::roundTrip()
{
    put();
    put(u"cardlab"_s, u"broken, %1 \"quoted\"\n😀"_s);
    put(u"spasiboBatch"_s, u"{\"password\":\"hush\"}"_s);
    till->setAge(1, 90000);
    till->database.query(u"UPDATE message SET statuscode = '3' WHERE messageid = 2"_s);
    const QString all =
        u"SELECT type, body, cardnumber, statuscode, creationtime FROM message ORDER BY messageid"_s;
    const auto before = till->database.query(all);

    const CommandResult exported = till->run({u"export"_s});
    QCOMPARE(exported.exitCode, ExitCode::Done);
    QCOMPARE(exported.err, QString());
    const QStringList lines = exported.out.trimmed().split(u'\n');
    QCOMPARE(lines.size(), 4);
    for (const QString &line : lines)
        QVERIFY(QJsonDocument::fromJson(line.toUtf8()).isObject());
    QVERIFY2(lines.last().startsWith(u"{\"exported\":3,\"host\":"_s), qPrintable(lines.last()));
    till->database.query(u"DELETE FROM message"_s);

    const QString file = till->write(u"/rows.jsonl"_s, exported.out.toUtf8());
    const CommandResult imported = till->run({u"import"_s, file, u"--json"_s});
    QCOMPARE(imported.exitCode, ExitCode::Done);
    QCOMPARE(imported.json().value(u"rows"_s).toInt(), 3);
    QCOMPARE(till->database.query(all), before);
    QCOMPARE(till->database.ids(), (QList<int>{4, 5, 6}));
    QCOMPARE(imported.json().value(u"firstId"_s).toInt(), 4);
    QCOMPARE(imported.json().value(u"lastId"_s).toInt(), 6);
}

void TestQueuectlWrite::exportOfType()
{
    // More than one page.
    for (int i = 0; i < 250; ++i)
        put(i % 2 == 0 ? u"heineken"_s : u"cardlab"_s, u"{\"n\":%1}"_s.arg(i));
    const QStringList lines = till->run({u"export"_s, u"cardlab"_s}).out.trimmed().split(u'\n');
    QCOMPARE(lines.size(), 126);
    for (qsizetype i = 0; i < 125; ++i) {
        const QJsonObject row = QJsonDocument::fromJson(lines[i].toUtf8()).object();
        QCOMPARE(row.value(u"body"_s).toString(), u"{\"n\":%1}"_s.arg(2 * i + 1));
    }
    QCOMPARE(till->run({u"export"_s}).out.count(u'\n'), 251);
    QCOMPARE(till->run({u"export"_s, u"cardlb"_s}).exitCode, ExitCode::NotFound);
}

void TestQueuectlWrite::exportFile()
{
    put();
    const QString file = till->database.root() + u"/rows.jsonl"_s;
    const CommandResult outcome = till->run({u"export"_s, u"--output"_s, file, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"rows"_s).toInt(), 1);
    QCOMPARE(outcome.json().value(u"file"_s).toString(), file);
    // The rows hold secrets.
    QCOMPARE(QFile::permissions(file) & (QFile::ReadGroup | QFile::ReadOther),
             QFile::Permissions());
    QCOMPARE(till->run({u"import"_s, file}).exitCode, ExitCode::Done);
    const CommandResult nowhere = till->run({u"export"_s, u"--output"_s, u"/no/such/folder/x"_s});
    QCOMPARE(nowhere.exitCode, ExitCode::Failed);
}

void TestQueuectlWrite::exportIntoFullDisk()
{
    put();
    QProcess shell;
    shell.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    shell.setStandardOutputFile(u"/dev/full"_s);
    shell.start(QStringLiteral(QUEUECTL_PROGRAM), {u"export"_s});
    QVERIFY(shell.waitForFinished());
    QCOMPARE(shell.exitCode(), int(ExitCode::Failed));
    QVERIFY(!shell.readAllStandardError().isEmpty());
}

/// The disk takes all but what is still in the buffer at the end.
void TestQueuectlWrite::exportWhoseEndDoesNotFit()
{
    for (int i = 0; i < 100; ++i)
        put();
    const qint64 size = till->run({u"export"_s}).out.toUtf8().size();
    constexpr qint64 bufferBytes = 16 * 1024;
    const qint64 space = (size - 1) / bufferBytes * bufferBytes;
    QVERIFY2(space > 0, qPrintable(QString::number(size)));
    const QString file = till->database.root() + u"/rows.jsonl"_s;
    QProcess shell;
    shell.start(
        u"/bin/bash"_s,
        {u"-c"_s, u"trap '' XFSZ; ulimit -f %1; exec '%2' export --output '%3'"_s.arg(
                      QString::number(space / 1024), QStringLiteral(QUEUECTL_PROGRAM), file)});
    QVERIFY(shell.waitForFinished());
    const QByteArray errors = shell.readAllStandardError();
    QCOMPARE(shell.exitCode(), int(ExitCode::Failed));
    QVERIFY2(errors.contains("rows.jsonl"), errors.constData());
    QVERIFY(!QFile::exists(file));
}

void TestQueuectlWrite::resultsIntoAPipe_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QByteArray>("begin");
    QTest::newRow("export") << QStringList{u"export"_s, u"--output"_s} << "{\""_ba;
    QTest::newRow("report") << QStringList{u"report"_s, u"--html"_s} << "<!DOCTYPE html>"_ba;
    QTest::newRow("bundle") << QStringList{u"bundle"_s, u"--output"_s} << "\x1f\x8b"_ba;
}

/// A pipe, like a device, is not replaced, and keeps its rights.
void TestQueuectlWrite::resultsIntoAPipe()
{
    QFETCH(QStringList, command);
    QFETCH(QByteArray, begin);
    put();
    const QString pipe = till->database.root() + u"/pipe"_s;
    const QByteArray name = QFile::encodeName(pipe);
    QCOMPARE(::mkfifo(name.constData(), 0640), 0);
    // Holds what the command writes, and keeps it from waiting for a reader.
    const int reader = ::open(name.constData(), O_RDWR | O_NONBLOCK);
    QVERIFY(reader >= 0);
    const auto close = qScopeGuard([reader] { ::close(reader); });
    ::fcntl(reader, F_SETPIPE_SZ, 1024 * 1024);

    QCOMPARE(till->run(command << pipe).exitCode, ExitCode::Done);
    QByteArray content(1024 * 1024, '\0');
    content.truncate(std::max<ssize_t>(::read(reader, content.data(), content.size()), 0));
    QVERIFY2(content.startsWith(begin), content.left(100).constData());
    struct stat status = {};
    QCOMPARE(::stat(name.constData(), &status), 0);
    QVERIFY(S_ISFIFO(status.st_mode));
    QCOMPARE(status.st_mode & 0777U, 0640U);
}

void TestQueuectlWrite::importIsAllOrNothing_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("reason");
    const QByteArray good = "{\"type\":\"heineken\",\"body\":{\"a\":1}}\n";
    const QByteArray end = "{\"exported\":2}\n";
    QTest::newRow("no JSON") << good + "{\n" + end << 2 << QString();
    QTest::newRow("no object") << good + "[]\n" + end << 2 << u"is no JSON object"_s;
    QTest::newRow("no type") << good + "{\"body\":{}}\n" + end << 2 << u"there is no type"_s;
    QTest::newRow("no body") << good + "{\"type\":\"heineken\"}\n" + end << 2
                             << u"there is no body"_s;
    QTest::newRow("unknown type") << good + "{\"type\":\"x\",\"body\":{}}\n" + end << 2
                                  << u"no handler for type 'x'"_s;
    QTest::newRow("no time")
        << good + "{\"type\":\"heineken\",\"body\":{},\"creationtime\":\"noon\"}\n" + end << 2
        << u"'noon' is no time"_s;
    QTest::newRow("long card") << good + "{\"type\":\"heineken\",\"body\":{},\"cardnumber\":\""
                                      + QByteArray(200, '1') + "\"}\n" + end
                               << 2 << u"longer than 128"_s;
    QTest::newRow("cut off") << good + good << 3 << u"the closing line is missing"_s;
    QTest::newRow("a line lost") << good + end << 2 << u"should have 2 rows and has 1"_s;
    QTest::newRow("rows behind the end")
        << good + good + end + good << 4 << u"stands behind the closing line"_s;
}

void TestQueuectlWrite::importIsAllOrNothing()
{
    QFETCH(const QByteArray, content);
    QFETCH(const int, line);
    QFETCH(const QString, reason);
    const QString file = till->write(u"/rows.jsonl"_s, content);
    const CommandResult outcome = till->run({u"import"_s, file, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    const QJsonArray faults = outcome.json().value(u"faults"_s).toArray();
    bool isNamed = false;
    for (const QJsonValue &fault : faults)
        isNamed |= fault.toObject().value(u"line"_s).toInt() == line
                   && fault.toObject().value(u"text"_s).toString().contains(reason);
    QVERIFY2(isNamed, qPrintable(outcome.out));
    QCOMPARE(rows(), QStringList());
    QCOMPARE(till->run({u"import"_s, u"/no/such/file"_s}).exitCode, ExitCode::NotFound);
}

void TestQueuectlWrite::importFailsHalfway()
{
    // The database refuses the third row, after two have been written.
    QFETCH(const bool, onServer);
    if (onServer)
        server->run(u"ALTER TABLE queues.message ADD CONSTRAINT few CHECK (body <> '{\"n\":2}')"_s);
    else
        till->database.query(
            u"CREATE TRIGGER queues.few BEFORE INSERT ON message WHEN NEW.body = '{\"n\":2}' BEGIN SELECT RAISE(ABORT, 'few'); END"_s);
    QByteArray content;
    for (int i = 0; i < 4; ++i)
        content += "{\"type\":\"heineken\",\"body\":{\"n\":" + QByteArray::number(i) + "}}\n";
    const QString file = till->write(u"/rows.jsonl"_s, content + "{\"exported\":4}\n");
    const CommandResult outcome = till->run({u"import"_s, file});
    if (onServer)
        server->run(u"ALTER TABLE queues.message DROP CONSTRAINT few"_s);
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"few"), qPrintable(outcome.err));
    QCOMPARE(rows(), QStringList());
}

void TestQueuectlWrite::importExceptions()
{
    const QByteArray row = "{\"type\":\"later\",\"body\":{}}\n";
    const QString file = till->write(u"/rows.jsonl"_s, row);
    QCOMPARE(till->run({u"import"_s, file, u"--partial"_s}).exitCode, ExitCode::Found);
    QCOMPARE(till->run({u"import"_s, file, u"--any-type"_s}).exitCode, ExitCode::Found);
    QCOMPARE(till->run({u"import"_s, file, u"--partial"_s, u"--any-type"_s}).exitCode,
             ExitCode::Done);
    QCOMPARE(till->run({u"import"_s, u"-"_s, u"--any-type"_s}, row + "{\"exported\":1}").exitCode,
             ExitCode::Done);
    QCOMPARE(rows().size(), 2);
}

void TestQueuectlWrite::progressOnTerminalOnly()
{
    for (int i = 0; i < 3; ++i)
        put();
    const QString file = till->database.root() + u"/rows.jsonl"_s;
    const QStringList command{u"export"_s, u"--output"_s, file};
    QVERIFY(till->runOnTerminal(command).out.contains(u"100%  3/3"));
    QCOMPARE(till->run(command).err, QString());
    QVERIFY(till->runOnTerminal({u"import"_s, file}).out.contains(u"100%  3/3"));
}

void TestQueuectlWrite::lockedDatabase()
{
    // A writer does not delay a reader; a reader that delays the log is reported.
    put();
    till->database.query(u"BEGIN IMMEDIATE"_s);
    QCOMPARE(till->run({u"list"_s, u"heineken"_s}).exitCode, ExitCode::Done);
    const CommandResult outcome = till->run({u"drop"_s, u"1"_s, u"--yes"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"locked"), qPrintable(outcome.err));
    till->database.query(u"ROLLBACK"_s);
    QCOMPARE(till->database.ids(), QList<int>{1});
}

QTEST_GUILESS_MAIN(TestQueuectlWrite)
#include "tst_queuectlwrite.moc"
