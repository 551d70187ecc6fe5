#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/page/htmlreader.h"
#include "tests/tools/queuectl/page/reportsample.h"
#include "tests/tools/queuectl/till.h"
#include "tools/queuectl/failure.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};

QByteArray content(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return file.readAll();
}

/// The processor time of the programs that have ended.
qint64 processorSeconds()
{
    rusage usage{};
    if (::getrusage(RUSAGE_CHILDREN, &usage) != 0)
        qFatal("the processor time is not known");
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec;
}

} // namespace

/// The command that writes the page.
class TestReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void writesTheFile();
    void replacesTheFileAsAWhole();
    void standardOutput();
    void usage_data();
    void usage();
    void sinceLimitsTheTime();
    void bothLanguagesAreAlike();
    void hostileTill();
    void journalOfManyRows();

private:
    std::unique_ptr<Till> till;
    std::unique_ptr<QTemporaryDir> folder;
};

void TestReport::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    folder = std::make_unique<QTemporaryDir>();
}

void TestReport::writesTheFile()
{
    const QString path = folder->filePath(u"report.html"_s);
    const CommandResult result = till->run({u"report"_s, u"--html"_s, path, u"--json"_s});
    QCOMPARE(result.exitCode, ExitCode::Done);
    const QByteArray page = content(path);
    QCOMPARE(result.json().value(u"file"_s).toString(), path);
    QCOMPARE(result.json().value(u"bytes"_s).toInt(), page.size());
    QCOMPARE(readHtml(page).fault, QString());
    const QFile::Permissions permissions = QFile::permissions(path);
    QVERIFY(permissions.testFlag(QFile::ReadOwner) && permissions.testFlag(QFile::WriteOwner));
    QVERIFY(permissions.testFlag(QFile::ReadGroup) && !permissions.testFlag(QFile::WriteGroup));
    QVERIFY(!permissions.testFlag(QFile::ReadOther) && !permissions.testFlag(QFile::WriteOther));
    const CommandResult told = till->run({u"report"_s, u"--html"_s, path});
    QVERIFY2(told.out.startsWith(path + u" is made."_s), qPrintable(told.out));
}

void TestReport::replacesTheFileAsAWhole()
{
    const QString path = folder->filePath(u"report.html"_s);
    QFile former(path);
    QVERIFY(former.open(QIODevice::WriteOnly) && former.write("former") == 6);
    former.close();
    QFile reader(path);
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QCOMPARE(till->run({u"report"_s, u"--html"_s, path}).exitCode, ExitCode::Done);
    // A program that has the former file open reads it to its end.
    QCOMPARE(reader.readAll(), QByteArray("former"));
    QVERIFY(content(path).startsWith("<!DOCTYPE html>"));
    QVERIFY(!QFile::permissions(path).testFlag(QFile::ReadOther));

    const CommandResult refused = till->run({u"report"_s, u"--html"_s, folder->path()});
    QCOMPARE(refused.exitCode, ExitCode::Failed);
    QVERIFY2(refused.err.contains(u"cannot be written"_s), qPrintable(refused.err));
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList{u"report.html"_s});
}

void TestReport::standardOutput()
{
    const CommandResult result = till->run({u"report"_s, u"--html"_s, u"-"_s});
    QCOMPARE(result.exitCode, ExitCode::Done);
    QVERIFY(result.out.startsWith(u"<!DOCTYPE html><html lang=\"en\">"_s));
    QCOMPARE(readHtml(result.out.toUtf8()).fault, QString());
}

void TestReport::usage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QStringList{} << u"--html names the file"_s;
    QTest::newRow("strange time") << QStringList{u"--html"_s, u"x"_s, u"--since"_s, u"long ago"_s}
                                  << u"--since takes today"_s;
    QTest::newRow("future") << QStringList{u"--html"_s, u"x"_s, u"--since"_s, u"2999-01-01"_s}
                            << u"lies in the future"_s;
}

void TestReport::usage()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const CommandResult result = till->run(QStringList{u"report"_s} + arguments);
    QCOMPARE(result.exitCode, ExitCode::Usage);
    QVERIFY2(result.err.contains(reason), qPrintable(result.err));
}

void TestReport::sinceLimitsTheTime()
{
    {
        JournalFixture journal(till->database.root());
        journal.put(
            {.id = 1, .verdict = u"dropped"_s, .reference = u"ref-new"_s, .secondsAgo = 600});
        journal.put(
            {.id = 2, .verdict = u"dropped"_s, .reference = u"ref-old"_s, .secondsAgo = 9000});
        journal.put({.id = 3,
                     .verdict = u"dropped"_s,
                     .reference = u"ref-ancient"_s,
                     .secondsAgo = 691'200});
    }
    const auto references = [this](const QStringList &since) {
        const QString text =
            readHtml(till->run(QStringList{u"report"_s, u"--html"_s, u"-"_s} + since).out.toUtf8())
                .text;
        QStringList found;
        for (const QString &word : {u"ref-new"_s, u"ref-old"_s, u"ref-ancient"_s}) {
            if (text.contains(word))
                found.append(word);
        }
        return found;
    };
    QCOMPARE(references({u"--since"_s, u"2h"_s}), QStringList{u"ref-new"_s});
    QCOMPARE(references({}), (QStringList{u"ref-new"_s, u"ref-old"_s}));
    QCOMPARE(references({u"--since"_s, u"30d"_s}),
             (QStringList{u"ref-new"_s, u"ref-old"_s, u"ref-ancient"_s}));
}

void TestReport::bothLanguagesAreAlike()
{
    {
        JournalFixture journal(till->database.root());
        fillWithAWeek(*till, journal);
    }
    const QStringList call{u"report"_s, u"--html"_s, u"-"_s, u"--since"_s, u"2026-01-01"_s};
    const HtmlPage english = readHtml(till->run(call).out.toUtf8());
    const HtmlPage translated = readHtml(till->run(call, {}, russian).out.toUtf8());
    QCOMPARE(english.fault, QString());
    QCOMPARE(translated.fault, QString());
    QCOMPARE(translated.elements, english.elements);
    QCOMPARE(translated.images, english.images);
    QCOMPARE(translated.imagesWithoutWords, 0);
    QVERIFY(english.attributes.contains(u"lang=en"_s));
    QVERIFY(translated.attributes.contains(u"lang=ru"_s));
    QVERIFY(translated.text.contains(u"Отчёт об очереди"_s));
    QVERIFY(!english.text.contains(u"Отчёт"_s));
    QVERIFY(!translated.text.contains(u"Delivered"_s));
}

/// The whole way, from rows, journal and settings to the page.
void TestReport::hostileTill()
{
    {
        JournalFixture journal(till->database.root());
        fillWithHostileTexts(*till, journal);
    }
    for (const auto &environment : {QMap<QString, QString>(), russian}) {
        const CommandResult result = till->run({u"report"_s, u"--html"_s, u"-"_s}, {}, environment);
        QCOMPARE(result.exitCode, ExitCode::Done);
        const HtmlPage page = readHtml(result.out.toUtf8());
        QCOMPARE(page.fault, QString());
        QCOMPARE(page.elements.count(u"section"_s), 7);
        QCOMPARE(page.elements.count(u"script"_s) + page.elements.count(u"img"_s)
                     + page.elements.count(u"a"_s),
                 0);
        QCOMPARE(page.imagesWithoutWords, 0);
        // A type, a destination, a reference, an answer.
        QVERIFY(page.text.count(u"<script>alert(1)</script>"_s) > 5);
        QVERIFY(result.out.size() < 400'000);
    }
}

/// As many as the service keeps.
void TestReport::journalOfManyRows()
{
    {
        JournalFixture journal(till->database.root());
        journal.run(
            u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 200000) "
            "INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text, "
            "attempts, first, last, milliseconds) SELECT i, 'type-' || (i % 58), '', 'r' || i, "
            "CASE i % 10 WHEN 0 THEN 'dropped' WHEN 1 THEN 'kept' ELSE 'delivered' END, 'network', "
            "503, 'refused', 1 + i % 3, ? + i * 3000 - (i % 3) * 90000, ? + i * 3000, 12 FROM n"_s,
            {QDateTime::currentMSecsSinceEpoch() - 604'000'000,
             QDateTime::currentMSecsSinceEpoch() - 604'000'000});
    }
    const qint64 former = processorSeconds();
    const CommandResult result = till->run({u"report"_s, u"--html"_s, u"-"_s});
    const qint64 seconds = processorSeconds() - former;
    QCOMPARE(result.exitCode, ExitCode::Done);
    const HtmlPage page = readHtml(result.out.toUtf8());
    QCOMPARE(page.fault, QString());
    QVERIFY(page.text.contains(u"Delivered160\u00a0000"_s));
    QVERIFY2(result.out.size() < 500'000, qPrintable(QString::number(result.out.size())));
    // It takes 1 to 3 s; a statement for each row would take minutes.
    QVERIFY2(seconds < 30, qPrintable(QString::number(seconds)));
}

QTEST_GUILESS_MAIN(TestReport)
#include "tst_report.moc"
