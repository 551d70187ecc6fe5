#include "rig/certificates.h"
#include "rig/mariadbserver.h"
#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "tools/queuectl/failure.h"
#include "tools/queuectl/logsettings.h"

#include <QFile>
#include <QJsonArray>
#include <QLibraryInfo>
#include <QProcess>
#include <QtTest>

#include <cerrno>
#include <unistd.h>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;
using rig::Certificates;
using rig::MariaDbServer;

/// The examination of an installation, and the archive for support.
class TestQueuectlDoctor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everyAreaIsChecked();
    void settingsWithLineNumbers();
    void settingsOfEveryFolder();
    void proxySettings();
    void noDatabase();
    void missingIndexesAndColumns();
    void ownersWithoutNames();
    void damagedFile();
    void largeLog();
    void serverWithoutRights();
    void tableOfAnOlderServer();
    void collationOfAnOlderServer();
    void futureRows();
    void noOpenssl();
    void portOfAnother();
    void certificates();
    void missingLogFile();
    void refusedLogSettings();
    void missingDriver();
    void secretsThatOthersMayRead();
    void bundle();
    void bundleWithoutDatabase();
    void bundleSince();
    void bundleWithoutTar();

private:
    /// The checks of an area as `state text`, from the JSON form.
    QStringList checks(const QString &area, const QMap<QString, QString> &environment = {});

    std::unique_ptr<Till> till;
};

void TestQueuectlDoctor::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
}

QStringList TestQueuectlDoctor::checks(const QString &area,
                                       const QMap<QString, QString> &environment)
{
    QStringList result;
    const CommandResult outcome = till->run({u"doctor"_s, u"--json"_s}, {}, environment);
    for (const QJsonValue &value : outcome.json().value(u"checks"_s).toArray()) {
        const QJsonObject check = value.toObject();
        if (check.value(u"area"_s).toString() == area)
            result.append(check.value(u"state"_s).toString() + u' '
                          + check.value(u"text"_s).toString());
    }
    return result;
}

void TestQueuectlDoctor::everyAreaIsChecked()
{
    till->database.ids();
    const CommandResult outcome = till->run({u"doctor"_s, u"--json"_s});
    const QJsonObject result = outcome.json();
    QStringList areas;
    int errors = 0;
    for (const QJsonValue &value : result.value(u"checks"_s).toArray()) {
        const QJsonObject check = value.toObject();
        if (!areas.contains(check.value(u"area"_s).toString()))
            areas.append(check.value(u"area"_s).toString());
        errors += check.value(u"state"_s).toString() == u"error" ? 1 : 0;
    }
    QCOMPARE(areas,
             (QStringList{u"settings"_s, u"database"_s, u"rights"_s, u"openssl"_s, u"clock"_s,
                          u"port"_s, u"certificates"_s, u"log"_s, u"journal"_s, u"rows"_s}));
    QCOMPARE(result.value(u"errors"_s).toInt(), errors);
    // The service does not run here; everything else is right.
    QCOMPARE(errors, 1);
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY(
        till->run({u"doctor"_s}, {}, {{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}}).out.contains(u"Ошибок: 1"));
}

void TestQueuectlDoctor::settingsWithLineNumbers()
{
    const QString file =
        till->write(u"/tallocash/cash/queue/config/a.ini"_s,
                    "[Spasibo]\nsendLimit = many\nbroken\n[Mindbox]\nenpoint = x\n");
    const QString text = checks(u"settings"_s).join(u'\n');
    for (const QString &finding : {u"error %1:2: Spasibo:sendLimit"_s, u"error %1:3: expected"_s,
                                   u"warning %1:5: Mindbox:enpoint is not read"_s})
        QVERIFY2(text.contains(finding.arg(file)), qPrintable(text));
}

void TestQueuectlDoctor::settingsOfEveryFolder()
{
    QVERIFY(QDir(till->database.root() + u"/tallocash/cash/conf/tcash.ini.d/puppet"_s)
                .removeRecursively());
    const QString text = checks(u"settings"_s).join(u'\n');
    QVERIFY2(text.contains(u"puppet: there is no such folder"), qPrintable(text));
}

void TestQueuectlDoctor::proxySettings()
{
    const QString first = till->write(u"/tallocash/cash/queue/config/a.ini"_s,
                                      "[network]\nproxy = http://hush@x:1\nnoProxy = *.shop\n");
    const QString last =
        till->write(u"/tallocash/cash/queue/config/b.ini"_s,
                    "; the till's own\n[network]\nproxy = http://till:hu@sh@x:1\nnoProxy = "
                    "shop, 10.0.0.0/8, shop:80\n");
    const QString text = checks(u"settings"_s).join(u'\n');
    QVERIFY2(text.contains(u"error %1:3: network:proxy: the user or the password"_s.arg(last)),
             qPrintable(text));
    QVERIFY2(text.contains(u"warning %1:4: network:noProxy: 'shop:80' matches no host"_s.arg(last)),
             qPrintable(text));
    // A value that the second file replaces is not used.
    QVERIFY2(!text.contains(first + u':') && !text.contains(u"hu"), qPrintable(text));
    QCOMPARE(text.count(u"network:"), 2);
}

void TestQueuectlDoctor::noDatabase()
{
    QVERIFY(checks(u"database"_s).join(u'\n').startsWith(u"error There is no database"));
    till->setSettings(u"[database]\ndriver = QMYSQL\nsocket = /nowhere\npassword = hush\n"_s);
    const QString text = checks(u"database"_s).join(u'\n');
    QVERIFY2(text.startsWith(u"error") && text.contains(u"/nowhere") && !text.contains(u"hush"),
             qPrintable(text));
}

void TestQueuectlDoctor::missingIndexesAndColumns()
{
    till->database.ids();
    QVERIFY(checks(u"database"_s).contains(u"ok tables, columns and indexes are all there"_s));
    till->database.query(u"DROP INDEX queues.message_card"_s);
    till->database.query(u"ALTER TABLE queues.message DROP COLUMN statuscode"_s);
    till->database.query(u"DROP TABLE queues.documentcard"_s);
    const QString text = checks(u"database"_s).join(u'\n');
    QVERIFY2(text.contains(u"warning table message lacks the indexes message_card"),
             qPrintable(text));
    QVERIFY2(text.contains(u"error table message lacks the columns statuscode"), qPrintable(text));
    QVERIFY2(text.contains(u"error there is no table documentcard"), qPrintable(text));

    // Looking creates no table.
    till->database.query(u"DROP TABLE queues.message"_s);
    QVERIFY(
        checks(u"database"_s).first().contains(u"has no table message; the service creates it"));
    QCOMPARE(till->run({u"status"_s}).exitCode, ExitCode::NoDatabase);
    QCOMPARE(till->run({u"list"_s, u"heineken"_s}).exitCode, ExitCode::NoDatabase);
    QCOMPARE(till->database.query(
                 u"SELECT name FROM queues.sqlite_master WHERE name NOT LIKE 'sqlite%'"_s),
             QList<QVariantList>());
}

/// As after a file was copied from another machine.
void TestQueuectlDoctor::ownersWithoutNames()
{
    if (::geteuid() != 0)
        QSKIP("only root may give files away");
    till->database.ids();
    constexpr uid_t nobodys = 54'321;
    const QByteArray file = QFile::encodeName(till->database.file());
    const QByteArray folder = QFile::encodeName(QFileInfo(till->database.file()).path());
    for (const QByteArray &path : {file, folder, file + "-wal", file + "-shm"})
        QVERIFY(::chown(path.constData(), nobodys, gid_t(-1)) == 0 || errno == ENOENT);
    QString out = till->run({u"doctor"_s}).out;
    QVERIFY2(out.contains(u"the files of the queue belong to 54321\n"_s), qPrintable(out));
    QCOMPARE(::chown(file.constData(), nobodys + 1, gid_t(-1)), 0);
    out = till->run({u"doctor"_s}).out;
    QVERIFY2(out.contains(u" belongs to 54322 and its folder to 54321: "_s), qPrintable(out));
}

void TestQueuectlDoctor::damagedFile()
{
    for (int i = 0; i < 200; ++i)
        till->database.put(u"heineken"_s, u"{\"a\":\"%1\"}"_s.arg(QString(500, u'x')));
    till->database.query(u"PRAGMA queues.wal_checkpoint(TRUNCATE)"_s);
    QVERIFY(checks(u"database"_s).contains(u"ok the file is sound"_s));
    QFile file(till->database.file());
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.seek(file.size() / 2));
    QCOMPARE(file.write(QByteArray(8192, '\x5A')), 8192);
    file.close();
    const QString text = checks(u"database"_s).join(u'\n');
    QVERIFY2(text.contains(u"error the file is damaged"), qPrintable(text));
}

void TestQueuectlDoctor::largeLog()
{
    const QString log = till->database.file() + u"-wal"_s;
    const QString body = QString(1024 * 1024, u'x');
    till->database.put(u"heineken"_s, u"{}"_s);
    till->database.query(u"PRAGMA queues.wal_autocheckpoint = 0"_s);
    till->database.query(u"PRAGMA queues.journal_size_limit = -1"_s);
    while (QFileInfo(log).size() < 60 * 1024 * 1024)
        till->database.put(u"heineken"_s, body);
    QVERIFY(QFileInfo(log).size() <= 64 * 1024 * 1024);
    QVERIFY(!checks(u"database"_s).join(u'\n').contains(log));
    while (QFileInfo(log).size() <= 66 * 1024 * 1024)
        till->database.put(u"heineken"_s, body);

    // This program also has it open.
    const QStringList found = checks(u"database"_s).filter(log);
    QCOMPARE(found.size(), 1);
    QVERIFY2(found.first().startsWith(u"warning %1 has grown to "_s.arg(log))
                 && found.first().contains(u"tst_queuectldoc (%1)"_s.arg(::getpid())),
             qPrintable(found.first()));
}

void TestQueuectlDoctor::serverWithoutRights()
{
    MariaDbServer server;
    till->setSettings(server.settings());
    QVERIFY(
        checks(u"rights"_s).join(u'\n').contains(u"ok the account on the server has the rights"));
    QVERIFY(checks(u"database"_s).contains(u"ok tables, columns and indexes are all there"_s));
    server.run(u"REVOKE DELETE ON queues.* FROM '%1'@'localhost'"_s.arg(server.user()));
    const QString text = checks(u"rights"_s).join(u'\n');
    QVERIFY2(text.contains(u"error the account on the server lacks DELETE"), qPrintable(text));
}

void TestQueuectlDoctor::tableOfAnOlderServer()
{
    MariaDbServer server;
    till->setSettings(server.settings());
    server.run(
        u"ALTER TABLE queues.message DROP PRIMARY KEY, DROP INDEX message_id, ADD PRIMARY KEY (messageid)"_s);
    const QString text = checks(u"database"_s).join(u'\n');
    QVERIFY2(text.contains(u"warning the key of table message does not begin with the type"),
             qPrintable(text));
    // As the operations manual has it.
    server.run(u"ALTER TABLE queues.message DROP PRIMARY KEY,"
               " ADD PRIMARY KEY (type, messageid), ADD UNIQUE INDEX message_id (messageid)"_s);
    QVERIFY(checks(u"database"_s).contains(u"ok tables, columns and indexes are all there"_s));
}

void TestQueuectlDoctor::collationOfAnOlderServer()
{
    MariaDbServer server;
    till->setSettings(server.settings());
    server.run(u"ALTER TABLE queues.message CONVERT TO CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;"
               "ALTER TABLE queues.documentcard MODIFY chequenumber VARCHAR(64) "
               "CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci NOT NULL DEFAULT ''"_s);
    server.run(
        u"INSERT INTO queues.message (type, body) VALUES ('cardlab', '{}'), ('cardlab ', '{}')"_s);
    const QStringList found = checks(u"database"_s).filter(u"warning "_s);
    QCOMPARE(found.size(), 2);
    QVERIFY2(found[0].startsWith(
                 u"warning texts in type, cardnumber of table message compare by utf8mb4_bin,"_s),
             qPrintable(found[0]));
    QVERIFY2(
        found[1].startsWith(
            u"warning texts in chequenumber of table documentcard compare by utf8mb4_general_ci,"_s),
        qPrintable(found[1]));

    // The statements that it prints.
    for (const QString &line : found)
        server.run(line.mid(line.indexOf(u"ALTER TABLE"_s)));
    QVERIFY(checks(u"database"_s).contains(u"ok tables, columns and indexes are all there"_s));
    QCOMPARE(server.run(u"SELECT COUNT(*) FROM queues.message WHERE type = 'cardlab'"_s), "1\n");

    server.run(u"ALTER TABLE queues.message MODIFY body LONGTEXT CHARACTER SET utf8mb4 "
               "COLLATE utf8mb4_general_nopad_ci NOT NULL, "
               "MODIFY cardnumber VARBINARY(128) NOT NULL DEFAULT ''"_s);
    const QString text = checks(u"database"_s).filter(u"warning "_s).join(u'\n');
    QVERIFY2(text.startsWith(
                 u"warning texts in body of table message compare by utf8mb4_general_nopad_ci,"_s),
             qPrintable(text));
}

void TestQueuectlDoctor::futureRows()
{
    till->setAge(till->database.put(u"heineken"_s, u"{}"_s), -86400);
    const QString text = checks(u"clock"_s).join(u'\n');
    QVERIFY2(text.startsWith(u"warning the newest row is from the future"), qPrintable(text));
}

void TestQueuectlDoctor::noOpenssl()
{
    QVERIFY(checks(u"openssl"_s).first().startsWith(u"ok OpenSSL"));
    QVERIFY(checks(u"openssl"_s, {{u"PATH"_s, u"/nowhere"_s}}).first().startsWith(u"error"));
}

void TestQueuectlDoctor::portOfAnother()
{
    QVERIFY(checks(u"port"_s).first().contains(u"is closed"));
    till->setSettings(u"port = 99999\n"_s);
    QVERIFY(checks(u"port"_s).first().contains(u"99999 is no port"));
}

void TestQueuectlDoctor::certificates()
{
    Certificates files;
    const Certificates::Identity authority = files.authority(u"authority"_s);
    const QString good = files.joined(files.client(authority, u"till"_s));
    const QString expired = files.expiredServer(authority, {u"DNS:localhost"_s}).certificate;
    const QString broken = till->write(u"/broken.pem"_s, "x");
    till->setSettings(u"[network]\ncaFile = %1\n"_s.arg(authority.certificate));
    for (const QString &path : {good, expired, broken, u"/no/such.pem"_s})
        till->database.put(u"heineken"_s, u"{\"url\":\"https://a\",\"cert\":\"%1\"}"_s.arg(path));
    till->write(u"/tmp/queue_platiqr_x.pem"_s, "x");
    till->write(u"/tmp/systemd-private-0-queue.service-a/tmp/spasibo-certs/y.pem"_s, "y");
    const QString packed = files.pkcs12(files.client(authority, u"other"_s), u"hush"_s);
    const QString locked = files.pkcs12(files.client(authority, u"third"_s), u"hush"_s);
    till->database.put(
        u"heineken"_s,
        u"{\"certificatePath\":\"%1\",\"certificatePassword\":\"hush\"}"_s.arg(packed));
    till->database.put(
        u"heineken"_s,
        u"{\"certificatePath\":\"%1\",\"certificatePassword\":\"wrong\"}"_s.arg(locked));
    const QString text = checks(u"certificates"_s).join(u'\n');
    QVERIFY2(text.contains(u"%1 is valid until"_s.arg(authority.certificate))
                 || text.contains(u"%1 expires on"_s.arg(authority.certificate)),
             qPrintable(text));
    QVERIFY2(text.contains(u"error %1 expired on"_s.arg(expired)), qPrintable(text));
    QVERIFY2(text.contains(u"error %1 holds no certificate"_s.arg(broken)), qPrintable(text));
    QVERIFY2(text.contains(u"error the certificate /no/such.pem is missing"), qPrintable(text));
    QVERIFY2(text.contains(u"queue_platiqr_x.pem holds no certificate"), qPrintable(text));
    QVERIFY2(text.contains(u"spasibo-certs/y.pem holds no certificate"), qPrintable(text));
    QVERIFY2(!text.contains(u"error %1 "_s.arg(good)) && text.contains(good), qPrintable(text));
    QVERIFY2(text.contains(packed + u" expires on"_s)
                 || text.contains(packed + u" is valid until"_s),
             qPrintable(text));
    QVERIFY2(text.contains(u"warning %1 does not open"_s.arg(locked)), qPrintable(text));
    QVERIFY(!text.contains(u"hush"));
}

void TestQueuectlDoctor::missingLogFile()
{
    QVERIFY(checks(u"log"_s).first().startsWith(u"ok no log file is configured"));
    till->setLog({});
    QVERIFY(checks(u"log"_s).first().startsWith(u"ok"));
    QVERIFY(QFile::remove(till->database.root() + u"/log/queue.log"_s));
    QVERIFY(checks(u"log"_s).first().startsWith(u"warning there is no log file"));
}

void TestQueuectlDoctor::refusedLogSettings()
{
    const QString settings = u"/tallocash/cash/queue/config/log4qt.properties"_s;
    const QString root = till->database.root();
    till->write(settings, "log4j.rootLogger=INFO, file\n"
                          "log4j.appender.file=org.apache.log4j.NoSuchAppender\n");
    QString text = checks(u"log"_s).join(u'\n');
    QVERIFY2(text.startsWith(
                 u"error %1%2 is refused, the service logs to systemd: "_s.arg(root, settings)),
             qPrintable(text));
    QVERIFY2(text.contains(u"NoSuchAppender"), qPrintable(text));

    const auto write = [&](const QString &file) {
        till->write(settings,
                    u"log4j.rootLogger=INFO, file\n"
                    "log4j.appender.file=org.apache.log4j.FileAppender\n"
                    "log4j.appender.file.File=%1\n"
                    "log4j.appender.file.layout=org.apache.log4j.SimpleLayout\n"_s.arg(file)
                        .toUtf8());
    };
    const QString outside = u"/var/log/queue-doctor-test/queue.log"_s;
    write(outside);
    text = checks(u"log"_s).first();
    QVERIFY2(text.startsWith(u"error"_s) && text.endsWith(u"only, not into "_s + outside),
             qPrintable(text));
    // The same on a till with the root of the machine.
    qputenv("QUEUE_ROOT", "");
    const QStringList outOfReach = queuectl::logFilesOutOfReach(root + settings);
    qputenv("QUEUE_ROOT", root.toUtf8());
    QCOMPARE(outOfReach, QStringList{outside});
    // The doctor's test files are not the files of the service.
    QVERIFY(!QFileInfo::exists(QFileInfo(outside).path()));
    write(root + u"/queue.log"_s);
    text = checks(u"log"_s).first();
    QVERIFY2(text.startsWith(u"warning there is no log file"_s), qPrintable(text));
    QVERIFY(!QFileInfo::exists(root + u"/queue.log"_s));
}

void TestQueuectlDoctor::missingDriver()
{
    // A copy of the program that finds only the SQLite driver.
    const QString folder = till->database.root() + u"/bin"_s;
    const QString drivers = QLibraryInfo::path(QLibraryInfo::PluginsPath) + u"/sqldrivers/"_s;
    QVERIFY(QDir().mkpath(folder + u"/plugins/sqldrivers"_s));
    QVERIFY(QFile::copy(QStringLiteral(QUEUECTL_PROGRAM), folder + u"/queuectl"_s));
    QVERIFY(
        QFile::link(drivers + u"libqsqlite.so"_s, folder + u"/plugins/sqldrivers/libqsqlite.so"_s));
    till->write(u"/bin/qt.conf"_s, "[Paths]\nPlugins = plugins\n");
    const auto examine = [&] {
        QProcess program;
        program.start(folder + u"/queuectl"_s, {u"doctor"_s});
        if (!program.waitForFinished())
            qFatal("%s", qPrintable(program.errorString()));
        return QString::fromUtf8(program.readAllStandardOutput());
    };
    QVERIFY(!examine().contains(u"is not installed"));
    till->setSettings(u"[database]\ndriver = QMYSQL\n"_s);
    const QString text = examine();
    QVERIFY2(text.contains(u"the settings ask for the driver QMYSQL, which is not installed (apt "
                           "install libqt6sql6-mysql)"_s),
             qPrintable(text));
}

void TestQueuectlDoctor::secretsThatOthersMayRead()
{
    till->database.ids();
    const QString file =
        till->write(u"/tallocash/cash/queue/config/local.ini"_s, "[Mindbox]\nsecretKey = hush\n");
    const auto findings = [&](QFile::Permissions rights) {
        if (!QFile::setPermissions(file, rights))
            qFatal("%s", qPrintable(file));
        return checks(u"rights"_s).filter(u"local.ini"_s).join(u'\n');
    };
    const QFile::Permissions own = QFile::ReadOwner | QFile::WriteOwner;
    QCOMPARE(findings(own), QString());
    QString text = findings(own | QFile::ReadGroup);
    QVERIFY2(text.startsWith(u"warning "_s + file) && text.contains(u"that the members of group"_s),
             qPrintable(text));
    QVERIFY(!text.contains(u"hush"_s));
    QVERIFY(
        findings(own | QFile::ReadOther).contains(u"that everybody on this machine can read"_s));
    // Without a secret, the rights do not matter.
    till->write(u"/tallocash/cash/queue/config/local.ini"_s,
                "[Mindbox]\nsecretKey =\ntimeout = 3\n");
    QCOMPARE(findings(own | QFile::ReadOther), QString());

    // A file that only root can read is not readable for the service.
    if (::geteuid() != 0)
        QSKIP("only root can give the till's folder to another account");
    QVERIFY(::chown(qPrintable(till->database.root() + u"/tallocash/cash/queue"_s), 65534, 65534)
            == 0);
    text = findings(own);
    QVERIFY2(text.startsWith(u"error "_s + file)
                 && text.contains(u"cannot be read by the service"_s),
             qPrintable(text));
}

void TestQueuectlDoctor::bundle()
{
    till->setSettings(u"[database]\npassword = hush\n[Mindbox]\nsecretKey = hush\n"_s);
    till->database.put(u"heineken"_s, u"{\"url\":\"http://a\",\"password\":\"hush\"}"_s);
    till->setLog(
        {logLine(90'000, u"INFO"_s, u"heineken"_s, u"long ago"_s), u"    and its second line"_s,
         logLine(60, u"INFO"_s, u"heineken"_s,
                 u"Обработка сообщения: {\"password\":\"hush\",\"card\":\"77001234567890\"}"_s)});
    JournalFixture journal(till->database.root());
    journal.put({.id = 17,
                 .verdict = u"dropped"_s,
                 .text = u"password=hush"_s,
                 .reference = u"77001234567890"_s});
    journal.put({.id = 16, .secondsAgo = 90'000});
    // Prints its arguments and one line.
    const QString tool = till->write(
        u"/bin/journalctl"_s,
        "#!/bin/sh\necho \"$@\" > \"$QUEUE_ROOT/asked\"\necho 'queue[1]: password=hush 77001234567890'\n"_ba);
    QVERIFY(QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner));
    const QString archive = till->database.root() + u"/support.tar.gz"_s;
    const CommandResult outcome =
        till->run({u"bundle"_s, u"--output"_s, archive, u"--json"_s}, {},
                  {{u"PATH"_s, QFileInfo(tool).path() + u':' + qEnvironmentVariable("PATH")}});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"file"_s).toString(), archive);
    QCOMPARE(outcome.json().value(u"bytes"_s).toInteger(), QFileInfo(archive).size());
    QCOMPARE(QFile::permissions(archive) & (QFile::ReadGroup | QFile::ReadOther),
             QFile::Permissions());

    QProcess tar;
    tar.start(u"tar"_s, {u"-xzf"_s, archive, u"-C"_s, till->database.root(),
                         u"--strip-components=1"_s, u"--one-top-level=unpacked"_s});
    QVERIFY(tar.waitForFinished());
    const QString folder = till->database.root() + u"/unpacked/"_s;
    const auto content = [&](const QString &name) {
        QFile file(folder + name);
        if (!file.open(QIODevice::ReadOnly))
            qWarning("%s is missing", qPrintable(name));
        return QString::fromUtf8(file.readAll());
    };
    QString all;
    for (const QString &name : {u"doctor.txt"_s, u"doctor.json"_s, u"status.txt"_s,
                                u"status.json"_s, u"shape.txt"_s, u"shape.json"_s, u"log.txt"_s,
                                u"systemd-log.txt"_s, u"history.jsonl"_s, u"versions.txt"_s})
        all += content(name);
    const QString settings =
        content(u"settings"_s + till->database.root() + u"/tallocash/cash/conf/tcash.ini"_s);
    QVERIFY2(settings.contains(u"secretKey = ***"), qPrintable(settings));
    QVERIFY(all.contains(QStringLiteral(QUEUE_VERSION)));
    QVERIFY(content(u"shape.txt"_s).contains(u"heineken"));
    QVERIFY(content(u"doctor.txt"_s).contains(u"openssl"));
    const QString log = content(u"log.txt"_s);
    QVERIFY2(log.contains(u"Обработка сообщения") && !log.contains(u"long ago")
                 && !log.contains(u"second line"),
             qPrintable(log));
    const QStringList history = content(u"history.jsonl"_s).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(history.size(), 1);
    QVERIFY2(history.first().contains(u"***7890"_s), qPrintable(history.first()));
    const QString systemd = content(u"systemd-log.txt"_s);
    const QString asked = content(u"../asked"_s);
    const qint64 yesterday = QDateTime::currentDateTime().addDays(-1).toSecsSinceEpoch();
    QVERIFY2(asked.startsWith(u"--unit=queue --since=@"_s)
                 && qAbs(asked.section(u'@', 1).section(u' ', 0, 0).toLongLong() - yesterday) < 60,
             qPrintable(asked));
    QVERIFY2(systemd.contains(u"queue[1]: password=*** ***7890\n"_s), qPrintable(systemd));
    for (const QString &secret : {u"hush"_s, u"77001234567890"_s})
        QVERIFY2(!(all + settings).contains(secret), qPrintable(secret));
}

void TestQueuectlDoctor::bundleWithoutDatabase()
{
    const QString archive = till->database.root() + u"/support.tar.gz"_s;
    QCOMPARE(till->run({u"bundle"_s, u"--output"_s, archive}).exitCode, ExitCode::Done);
    QVERIFY(QFileInfo(archive).size() > 0);
    QCOMPARE(till->run({u"bundle"_s, u"--output"_s, u"/no/such/folder/x"_s}).exitCode,
             ExitCode::Failed);
}

void TestQueuectlDoctor::bundleSince()
{
    till->database.ids();
    JournalFixture journal(till->database.root());
    journal.put({.id = 16, .secondsAgo = 90'000});
    journal.put({.id = 17, .secondsAgo = 7200});
    till->setLog({logLine(90'000, u"INFO"_s, u"queue"_s, u"вчера"_s),
                  logLine(7200, u"INFO"_s, u"queue"_s, u"недавно"_s)});
    const QString archive = till->database.root() + u"/support.tar.gz"_s;
    const auto content = [&](const QString &since, const QString &name) {
        till->run({u"bundle"_s, u"--output"_s, archive, u"--since"_s, since});
        QProcess tar;
        tar.start(u"tar"_s, {u"-xzOf"_s, archive, u"--wildcards"_s, u"*/"_s + name});
        tar.waitForFinished();
        return QString::fromUtf8(tar.readAllStandardOutput());
    };
    QCOMPARE(content(u"7d"_s, u"history.jsonl"_s).count(u'\n'), 2);
    QCOMPARE(content(u"3h"_s, u"history.jsonl"_s).count(u'\n'), 1);
    QCOMPARE(content(u"1h"_s, u"history.jsonl"_s), QString());
    QVERIFY(content(u"7d"_s, u"log.txt"_s).contains(u"вчера"_s));
    QVERIFY(!content(u"3h"_s, u"log.txt"_s).contains(u"вчера"_s));
    QVERIFY(content(u"3h"_s, u"log.txt"_s).contains(u"недавно"_s));
    // A log with lines that begin differently is included whole.
    till->write(u"/log/queue.log"_s, "[queue] first\n[queue] second\n");
    QCOMPARE(content(u"1h"_s, u"log.txt"_s), u"[queue] first\n[queue] second\n"_s);
    journal.run(u"PRAGMA user_version = 2"_s);
    QVERIFY(content(u"7d"_s, u"history.jsonl"_s).contains(u"newer version"_s));
    QCOMPARE(till->run({u"bundle"_s, u"--since"_s, u"soon"_s}).exitCode, ExitCode::Usage);
}

void TestQueuectlDoctor::bundleWithoutTar()
{
    const CommandResult outcome =
        till->run({u"bundle"_s, u"--output"_s, till->database.root() + u"/x.tar.gz"_s}, {},
                  {{u"PATH"_s, u"/nowhere"_s}});
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"tar"), qPrintable(outcome.err));
}

QTEST_GUILESS_MAIN(TestQueuectlDoctor)
#include "tst_queuectldoctor.moc"
