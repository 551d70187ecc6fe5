#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "shared/core/folderlock.h"
#include "shared/core/paths.h"

#include <QFile>
#include <QJsonArray>
#include <QtTest>

using namespace Qt::StringLiterals;

/// What `queuectl doctor` reports about the delivery journal and the events in it.
class TestJournalChecks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void reportsSizeAndAge();
    void saysWhyItCannotBeRead();
    void missingFile();
    void switchedOff();
    void tooManyMessages();
    void rights();
    void clockJumps_data();
    void clockJumps();
    void certificates_data();
    void certificates();
    void clockOffset_data();
    void clockOffset();

private:
    /// The findings of an area as `state text`.
    QStringList checks(const QString &area);
    bool found(const QString &area, const QString &start)
    {
        const QStringList all = checks(area);
        const bool isFound = std::any_of(all.cbegin(), all.cend(), [&start](const QString &text) {
            return text.startsWith(start);
        });
        if (!isFound)
            qWarning("%s", qPrintable(all.join(u'\n')));
        return isFound;
    }

    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
};

void TestJournalChecks::init()
{
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    till->database.ids();
    journal = std::make_unique<JournalFixture>(till->database.root());
    // As the service creates it.
    for (const QString &ending : {u""_s, u"-wal"_s, u"-shm"_s})
        QFile::setPermissions(journal->file() + ending, QFile::ReadOwner | QFile::WriteOwner
                                                            | QFile::ReadGroup | QFile::WriteGroup);
}

QStringList TestJournalChecks::checks(const QString &area)
{
    QStringList result;
    const QJsonObject data = till->run({u"doctor"_s, u"--json"_s}).json();
    for (const QJsonValue &check : data.value(u"checks"_s).toArray()) {
        if (check[u"area"_s].toString() == area)
            result.append(check[u"state"_s].toString() + u' ' + check[u"text"_s].toString());
    }
    return result;
}

void TestJournalChecks::reportsSizeAndAge()
{
    QCOMPARE(checks(u"journal"_s),
             QStringList{u"ok %1: nothing has been tried yet"_s.arg(journal->file())});
    journal->put({.id = 1, .secondsAgo = 600});
    journal->put({.id = 2, .secondsAgo = 60});
    const QStringList all = checks(u"journal"_s);
    QCOMPARE(all.size(), 1);
    QVERIFY2(all.first().startsWith(u"ok %1: messages 2, since "_s.arg(journal->file())),
             qPrintable(all.first()));
}

void TestJournalChecks::saysWhyItCannotBeRead()
{
    journal->run(u"PRAGMA user_version = 2"_s);
    QVERIFY(found(u"journal"_s, u"warning The delivery journal %1 was written by a newer"_s.arg(
                                    journal->file())));
    journal->close();
    till->write(u"/tallocash/cash/queue/journal.db"_s, QByteArray(9000, 'x'));
    QVERIFY(found(u"journal"_s, u"warning The delivery journal"_s));
    QVERIFY(till->run({u"doctor"_s}, {}, {{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}})
                .out.contains(u"Журнал доставки"_s));
}

void TestJournalChecks::missingFile()
{
    journal->close();
    QVERIFY(QFile::remove(journal->file()));
    // The service does not run, so it does not create one.
    QVERIFY(found(u"journal"_s, u"ok There is no delivery journal yet"_s));
    FolderLock service(serviceLockFile());
    QCOMPARE(service.take(u"active"_s), FolderLock::Result::Taken);
    // Just installed: there was nothing to write down.
    till->database.ids();
    QVERIFY(found(u"journal"_s, u"ok There is no delivery journal yet"_s));
    till->database.put(u"heineken"_s, u"{}"_s);
    till->database.query(u"DELETE FROM message"_s);
    QVERIFY(found(u"journal"_s, u"warning There is no delivery journal yet"_s));
    service.setRole(u"standby"_s);
    QVERIFY(found(u"journal"_s, u"ok There is no delivery journal yet"_s));
}

void TestJournalChecks::switchedOff()
{
    till->setSettings(u"[journal]\nenabled = no\n"_s);
    QVERIFY(found(u"journal"_s, u"warning journal:enabled is off"_s));
}

void TestJournalChecks::tooManyMessages()
{
    journal->run(u"INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, "
                 "text, attempts, first, last, milliseconds) WITH RECURSIVE n(i) AS (SELECT 1 "
                 "UNION ALL SELECT i + 1 FROM n WHERE i < 21500) SELECT i, 'a', '', '', 'kept', "
                 "'none', 0, '', 1, 1, 1, 1 FROM n"_s);
    QCOMPARE(checks(u"journal"_s).size(), 1);
    till->setSettings(u"[journal]\nrows = 1000\n"_s);
    QVERIFY(found(u"journal"_s, u"warning it holds 21500 messages, journal:rows allows 1000"_s));
}

void TestJournalChecks::rights()
{
    QVERIFY(QFile::setPermissions(journal->file(),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    QVERIFY(found(u"journal"_s, u"warning every account can read %1"_s.arg(journal->file())));
}

void TestJournalChecks::clockJumps_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<QString>("finding");
    QTest::newRow("in order") << 900 << 60 << QString();
    QTest::newRow("a little out of order") << 60 << 600 << QString();
    QTest::newRow("set back by an hour")
        << 60 << 3690 << u"warning the clock was set back by 1 h after"_s;
    QTest::newRow("from the future")
        << -7200 << -7200 << u"warning the last attempt on record is from the future"_s;
}

void TestJournalChecks::clockJumps()
{
    QFETCH(const int, first);
    QFETCH(const int, second);
    QFETCH(const QString, finding);
    journal->put({.id = 1, .secondsAgo = first});
    journal->put({.id = 2, .secondsAgo = second});
    const QStringList all = checks(u"clock"_s);
    if (finding.isEmpty())
        QVERIFY2(all.size() == 1 && all.first().startsWith(u"ok"), qPrintable(all.join(u'\n')));
    else
        QVERIFY(found(u"clock"_s, finding));
}

void TestJournalChecks::certificates_data()
{
    QTest::addColumn<int>("days");
    QTest::addColumn<int>("metDaysAgo");
    QTest::addColumn<QString>("finding");
    QTest::newRow("expired") << -2 << 1 << u"error /c/a.pem, in use on %1, has expired on %2"_s;
    QTest::newRow("soon") << 10 << 1 << u"warning /c/a.pem, in use on %1, expires on %2, in "_s;
    QTest::newRow("later") << 90 << 1 << u"ok /c/a.pem, in use on %1, is valid until %2"_s;
    QTest::newRow("not in use any more") << -2 << 60 << QString();
}

void TestJournalChecks::certificates()
{
    QFETCH(const int, days);
    QFETCH(const int, metDaysAgo);
    QFETCH(const QString, finding);
    const QDateTime end = QDateTime::currentDateTime().addDays(days).addSecs(-60);
    const int metAgo = metDaysAgo * 86'400;
    journal->fact(u"certificate"_s, u"/c/a.pem"_s, QString::number(end.toMSecsSinceEpoch()),
                  metAgo);
    if (finding.isEmpty()) {
        QVERIFY(!checks(u"certificates"_s).join(u'\n').contains(u"/c/a.pem"_s));
        return;
    }
    const QDateTime met = QDateTime::currentDateTime().addSecs(-metAgo);
    QVERIFY(found(u"certificates"_s,
                  finding.arg(met.toString(u"yyyy-MM-dd"_s), end.toString(u"yyyy-MM-dd"_s))));
}

void TestJournalChecks::clockOffset_data()
{
    QTest::addColumn<QStringList>("offsets");
    QTest::addColumn<int>("metAgo");
    QTest::addColumn<QString>("finding");
    QTest::newRow("agrees") << QStringList{u"-3"_s} << 60
                            << u"ok agrees with the answers of services (-3 s at h0)"_s;
    QTest::newRow("ahead") << QStringList{u"240"_s} << 60
                           << u"warning the till's clock is 4 min ahead of h0"_s;
    QTest::newRow("far ahead") << QStringList{u"7200"_s} << 60
                               << u"error the till's clock is 2 h ahead of h0"_s;
    QTest::newRow("far behind") << QStringList{u"-7200"_s} << 60
                                << u"error the till's clock is 2 h behind h0"_s;
    QTest::newRow("one service of three is wrong")
        << QStringList{u"1"_s, u"-9000"_s, u"2"_s} << 60
        << u"ok agrees with the answers of services (1 s at h0)"_s;
    QTest::newRow("long ago") << QStringList{u"7200"_s} << 200'000 << QString();
    QTest::newRow("not a number") << QStringList{u"much"_s} << 60 << QString();
}

void TestJournalChecks::clockOffset()
{
    QFETCH(const QStringList, offsets);
    QFETCH(const int, metAgo);
    QFETCH(const QString, finding);
    for (qsizetype i = 0; i < offsets.size(); ++i)
        journal->fact(u"clock"_s, u"h%1"_s.arg(i), offsets[i], metAgo);
    if (finding.isEmpty())
        QCOMPARE(checks(u"clock"_s).size(), 1);
    else
        QVERIFY(found(u"clock"_s, finding));
}

QTEST_GUILESS_MAIN(TestJournalChecks)
#include "tst_journalchecks.moc"
