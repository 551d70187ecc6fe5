#include "shared/core/config.h"
#include "shared/core/singleton.h"
#include "tests/support/logcapture.h"
#include "tools/settings/settingslist.h"

#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestPackaging : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyFileInItsPlace();
    void schemasAreThoseOfTheSource();
    void serverSchemasDifferByTheirCollation();
    void unitNamesTheInstalledProgram();
    void unitIsAccepted();
    void unitExposesLittle();
    void serviceNotifiesItsManager();
    void sampleSettingsChangeNothing();
    void sampleSettingsHoldTheDefaults_data();
    void sampleSettingsHoldTheDefaults();
    void sampleSettingsAreAllChecked();
    void sampleLoggingIsTheDefault();
    void sampleLogFileWorks();
    void firewallSample();

private:
    struct Result
    {
        int exitCode = -1;
        QString output;
    };
    static Result
    run(const QString &program, const QStringList &arguments,
        const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment());
    static QByteArray read(const QString &path);
    /// The sample with each default taken out of its comment.
    QByteArray activeSettings() const;
    QString sample(const QString &name) const;

    QTemporaryDir root;
};

namespace {

const QString prefix = QStringLiteral(INSTALL_PREFIX);
const QString sysconfDir = prefix == u"/usr" ? u"/etc"_s : prefix + u"/etc"_s;
const QString scenarios = prefix + u"/share/queue-stand/scenarios/"_s;

} // namespace

TestPackaging::Result TestPackaging::run(const QString &program, const QStringList &arguments,
                                         const QProcessEnvironment &environment)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished(60'000))
        qFatal("%s: %s", qPrintable(program), qPrintable(process.errorString()));
    return {process.exitCode(), QString::fromUtf8(process.readAll())};
}

QByteArray TestPackaging::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return file.readAll();
}

QString TestPackaging::sample(const QString &name) const
{
    return root.path() + prefix + u"/share/doc/queue/examples/"_s + name;
}

QByteArray TestPackaging::activeSettings() const
{
    static const QRegularExpression commented(u"^;(?=[A-Za-z.]+ =)"_s,
                                              QRegularExpression::MultilineOption);
    return QString::fromUtf8(read(sample(u"queue.ini.sample"_s))).remove(commented).toUtf8();
}

void TestPackaging::initTestCase()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DESTDIR"_s, root.path());
    const Result install = run(QStringLiteral(CMAKE_PROGRAM),
                               {u"--install"_s, QStringLiteral(BUILD_DIR)}, environment);
    QVERIFY2(install.exitCode == 0, qPrintable(install.output));
}

void TestPackaging::everyFileInItsPlace()
{
    QStringList expected{
        prefix + u"/lib/queue/write-metrics"_s,
        prefix + u"/lib/systemd/system/queue-metrics.service"_s,
        prefix + u"/lib/systemd/system/queue-metrics.timer"_s,
        prefix + u"/lib/systemd/system/queue.service"_s,
        prefix + u"/lib/sysusers.d/queue.conf"_s,
        prefix + u"/lib/tmpfiles.d/queue.conf"_s,
        prefix + u"/share/doc/queue-stand/changelog.gz"_s,
        prefix + u"/share/doc/queue-stand/copyright"_s,
        prefix + u"/share/doc/queue-stand/scenarios.md"_s,
        prefix + u"/share/doc/queue/README.md"_s,
        prefix + u"/share/doc/queue/SECURITY.md"_s,
        prefix + u"/share/doc/queue/changelog.gz"_s,
        prefix + u"/share/doc/queue/copyright"_s,
        prefix + u"/share/doc/queue/docs/control.md"_s,
        prefix + u"/share/doc/queue/docs/installation.md"_s,
        prefix + u"/share/doc/queue/docs/fleet.md"_s,
        prefix + u"/share/doc/queue/docs/fleet.ru.md"_s,
        prefix + u"/share/doc/queue/docs/integration.md"_s,
        prefix + u"/share/doc/queue/docs/integration.ru.md"_s,
        prefix + u"/share/doc/queue/docs/log.md"_s,
        prefix + u"/share/doc/queue/docs/message-types.md"_s,
        prefix + u"/share/doc/queue/docs/operations.md"_s,
        prefix + u"/share/doc/queue/docs/operations.ru.md"_s,
        prefix + u"/share/doc/queue/docs/settings.md"_s,
        prefix + u"/share/doc/queue/examples/log4qt.properties.sample"_s,
        prefix + u"/share/doc/queue/examples/queue.ini.sample"_s,
        prefix + u"/share/doc/queue/examples/queue.nft"_s,
        prefix + u"/share/man/man1/queue-stand.1.gz"_s,
        prefix + u"/share/man/man8/queue.8.gz"_s,
        prefix + u"/share/queue/fleet/alerts-test.yml"_s,
        prefix + u"/share/queue/fleet/alerts.yml"_s,
        prefix + u"/share/queue/fleet/dashboard.json"_s,
        prefix + u"/share/queue/sql/mariadb.sql"_s,
        prefix + u"/share/queue/sql/mysql.sql"_s,
        prefix + u"/share/queue/sql/sqlite.sql"_s,
        sysconfDir + u"/logrotate.d/queue"_s,
    };
    if (HAS_CONTROL) {
        expected.append(prefix + u"/bin/queuectl"_s);
        expected.append(prefix + u"/share/bash-completion/completions/queuectl"_s);
        expected.append(prefix + u"/share/man/man1/queuectl.1.gz"_s);
    }
    if (HAS_STAND) {
        expected.append(prefix + u"/bin/queue-stand"_s);
        expected.append(prefix + u"/share/lintian/overrides/queue-stand"_s);
    }
    if (HAS_PROGRAM)
        expected.append(prefix + u"/bin/queue"_s);
    expected.sort();

    QStringList found;
    QDirIterator files(root.path(), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next().mid(root.path().size());
        if (!path.startsWith(scenarios))
            found.append(path);
    }
    found.sort();
    QVERIFY(QFile::exists(root.path() + scenarios + u"forwarding/heineken.json"_s));
    QCOMPARE(found, expected);
}

void TestPackaging::schemasAreThoseOfTheSource()
{
    for (const QString &name : {u"sqlite.sql"_s, u"mariadb.sql"_s, u"mysql.sql"_s})
        QCOMPARE(read(root.path() + prefix + u"/share/queue/sql/"_s + name),
                 read(QStringLiteral(PACKAGING_DIR) + u"/sql/"_s + name));
}

/// MySQL does not know MariaDB's name of the collation, and MariaDB not MySQL's.
void TestPackaging::serverSchemasDifferByTheirCollation()
{
    const auto statements = [](const QString &name) {
        QByteArray result = read(QStringLiteral(PACKAGING_DIR) + u"/sql/"_s + name);
        const QByteArrayList lines = result.split('\n');
        result.clear();
        for (const QByteArray &line : lines) {
            if (!line.trimmed().startsWith("--"))
                result += line + '\n';
        }
        return result;
    };
    const QByteArray mariadb = statements(u"mariadb.sql"_s);
    QCOMPARE(mariadb.count("utf8mb4_"), mariadb.count("utf8mb4_nopad_bin"));
    QVERIFY(mariadb.count("utf8mb4_nopad_bin") > 8);
    QCOMPARE(statements(u"mysql.sql"_s),
             QByteArray(mariadb).replace("utf8mb4_nopad_bin", "utf8mb4_0900_bin"));
}

void TestPackaging::unitNamesTheInstalledProgram()
{
    const QByteArray unit = read(root.path() + prefix + u"/lib/systemd/system/queue.service"_s);
    QVERIFY(unit.contains("\nExecStart=" + prefix.toUtf8() + "/bin/queue\n"));
    for (const char *line : {"Type=notify", "Restart=always", "User=queue", "RestartSec=10",
                             "StartLimitIntervalSec=0", "NotifyAccess=main"})
        QVERIFY2(unit.contains("\n" + QByteArray(line) + "\n"), line);
}

void TestPackaging::unitIsAccepted()
{
    const QString tool = QStandardPaths::findExecutable(u"systemd-analyze"_s);
    if (tool.isEmpty())
        QSKIP("systemd-analyze is not installed");
    QByteArray unit = read(root.path() + prefix + u"/lib/systemd/system/queue.service"_s);
    // The tool wants to see the program.
    unit.replace("ExecStart=" + prefix.toUtf8() + "/bin/queue", "ExecStart=/bin/true");
    QTemporaryDir folder;
    const QString path = folder.filePath(u"queue.service"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(unit) == unit.size());
    file.close();
    const Result verify = run(tool, {u"verify"_s, u"--man=no"_s, path});
    // Warnings about other units of the machine do not matter.
    QStringList complaints;
    for (const QString &line : verify.output.split(u'\n')) {
        if (line.contains(u"queue.service"_s))
            complaints.append(line);
    }
    QCOMPARE(complaints, QStringList());
    QVERIFY2(verify.exitCode == 0, qPrintable(verify.output));
}

void TestPackaging::unitExposesLittle()
{
    const QString tool = QStandardPaths::findExecutable(u"systemd-analyze"_s);
    if (tool.isEmpty())
        QSKIP("systemd-analyze is not installed");
    const Result rating =
        run(tool, {u"security"_s, u"--offline=true"_s, u"--no-pager"_s,
                   root.path() + prefix + u"/lib/systemd/system/queue.service"_s});
    static const QRegularExpression overall(u"exposure level for queue.service: ([0-9.]+)"_s);
    const QRegularExpressionMatch match = overall.match(rating.output);
    QVERIFY2(match.hasMatch(), qPrintable(rating.output));
    QVERIFY2(match.captured(1).toDouble() <= 2.5, qPrintable(match.captured(0)));
}

void TestPackaging::serviceNotifiesItsManager()
{
    if (!HAS_PROGRAM)
        QSKIP("the program is not part of this build");
    if (!HAS_SYSTEMD)
        QSKIP("this build has no libsystemd, so the program tells nobody");

    QTemporaryDir till;
    for (const QString &path :
         {u"/tallocash/cash/conf/tcash.ini.d/puppet"_s, u"/tallocash/cash/queue/config/queue.d"_s})
        QDir().mkpath(till.path() + path);
    QFile settings(till.path() + u"/tallocash/cash/conf/tcash.ini"_s);
    QVERIFY(settings.open(QIODevice::WriteOnly) && settings.write("[queue]\nport = 0\n") > 0);
    settings.close();

    // The manager's end of the line.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(till.filePath(u"notify"_s));
    QVERIFY(path.size() < qsizetype(sizeof address.sun_path));
    std::copy(path.cbegin(), path.cend(), address.sun_path);
    const int line = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto closed = qScopeGuard([line] { ::close(line); });
    QVERIFY(::bind(line, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
    const timeval patience{60, 0};
    QVERIFY(::setsockopt(line, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0);
    const auto next = [line] {
        char buffer[256];
        const ssize_t size = ::recv(line, buffer, sizeof buffer, 0);
        return QByteArray(buffer, std::max<ssize_t>(size, 0));
    };

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(u"LOG4QT_CONFIGURATION"_s);
    environment.remove(u"WATCHDOG_PID"_s);
    environment.insert(u"QUEUE_ROOT"_s, till.path());
    environment.insert(u"NOTIFY_SOCKET"_s, QString::fromLocal8Bit(path));
    environment.insert(u"WATCHDOG_USEC"_s, u"200000"_s);
    QProcess service;
    service.setProcessEnvironment(environment);
    service.setStandardOutputFile(QProcess::nullDevice());
    service.start(QStringLiteral(QUEUE_PROGRAM), {});
    QVERIFY2(service.waitForStarted(), qPrintable(service.errorString()));

    QCOMPARE(next(), "READY=1");
    for (int beat = 0; beat < 3; ++beat)
        QCOMPARE(next(), "WATCHDOG=1");
    service.terminate();
    QByteArray word = next();
    while (word == "WATCHDOG=1")
        word = next();
    QCOMPARE(word, "STOPPING=1");
    QVERIFY(service.waitForFinished(60'000));
    QCOMPARE(service.exitCode(), 0);
}

void TestPackaging::sampleSettingsChangeNothing()
{
    LogCapture log(u"config"_s);
    QTemporaryDir folder;
    QVERIFY(QFile::copy(sample(u"queue.ini.sample"_s), folder.filePath(u"local.ini"_s)));
    Config::setConfigsPathList({QDir(folder.path())}, {});
    QCOMPARE(Singleton<Config>::instance()->getString(u"queue:timeout"_s, u"absent"_s),
             u"absent"_s);
    QCOMPARE(log.lines(), QStringList());
}

void TestPackaging::sampleSettingsHoldTheDefaults_data()
{
    QTest::addColumn<QString>("value");
    for (const settings::Section &section : settings::sections()) {
        for (const settings::Entry &entry : section.entries)
            QTest::newRow(qPrintable(section.name + u':' + entry.key)) << entry.defaultText;
    }
}

void TestPackaging::sampleSettingsHoldTheDefaults()
{
    QFETCH(QString, value);
    LogCapture log(u"config"_s);
    QTemporaryDir folder;
    QFile settings(folder.filePath(u"local.ini"_s));
    QVERIFY(settings.open(QIODevice::WriteOnly));
    settings.write(activeSettings());
    settings.close();
    Config::setConfigsPathList({QDir(folder.path())}, {});
    const QString key = QString::fromLatin1(QTest::currentDataTag());
    QCOMPARE(Singleton<Config>::instance()->getString(key, u"absent"_s), value);
    QCOMPARE(log.lines(), QStringList());
}

void TestPackaging::sampleSettingsAreAllChecked()
{
    qsizetype listed = 0;
    for (const settings::Section &section : settings::sections())
        listed += section.entries.size();
    static const QRegularExpression setting(u"^[A-Za-z.]+ ="_s,
                                            QRegularExpression::MultilineOption);
    QCOMPARE(QString::fromUtf8(activeSettings()).count(setting), listed);
}

void TestPackaging::sampleLoggingIsTheDefault()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LOG4QT_CONFIGURATION"_s, sample(u"log4qt.properties.sample"_s));
    static const QRegularExpression expected(
        u"^\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2},\\d{3} INFO  \\[cardlab\\] Отправка\n$"_s);
    const Result probe = run(QStringLiteral(LOGPROBE), {u"say"_s, u"Отправка"_s}, environment);
    QVERIFY2(expected.match(probe.output).hasMatch(), qPrintable(probe.output));
    QCOMPARE(run(QStringLiteral(LOGPROBE), {u"levels"_s}, environment).output.count(u'\n'), 4);
}

void TestPackaging::sampleLogFileWorks()
{
    // The commented half of the sample, used as its comments say.
    QTemporaryDir folder;
    QString text = QString::fromUtf8(read(sample(u"log4qt.properties.sample"_s)));
    text.replace(u"\n#log4j"_s, u"\nlog4j"_s);
    text.replace(u"INFO, stdout"_s, u"INFO, stdout, file"_s);
    text.replace(u"/tallocash/cash/queue/log"_s, folder.filePath(u"log"_s));
    const QString path = folder.filePath(u"log4qt.properties"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
    file.close();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LOG4QT_CONFIGURATION"_s, path);
    const Result probe = run(QStringLiteral(LOGPROBE), {u"levels"_s}, environment);
    QCOMPARE(probe.output.count(u'\n'), 5);
    QCOMPARE(QString::fromUtf8(read(folder.filePath(u"log/queue.log"_s))), probe.output);
}

void TestPackaging::firewallSample()
{
    QString rules = QString::fromUtf8(read(sample(u"queue.nft"_s)));
    static const QRegularExpression comment(u"^#.*\n"_s, QRegularExpression::MultilineOption);
    const QString active = QString(rules).remove(comment).simplified();
    // Only loopback, only the port; everything else is not affected.
    QCOMPARE(active, u"define queue_accounts = { root, till } define queue_port = 28085 "
                     "table inet queue_control delete table inet queue_control "
                     "table inet queue_control { chain output { "
                     "type filter hook output priority filter; policy accept; "
                     "oifname \"lo\" tcp dport $queue_port meta skuid != $queue_accounts "
                     "reject with tcp reset } }"_s);

    const QString tool =
        QStandardPaths::findExecutable(u"nft"_s, QString::fromLocal8Bit(qgetenv("PATH")).split(u':')
                                                     + QStringList{u"/usr/sbin"_s, u"/sbin"_s});
    // An account that every machine has.
    rules.replace(u"{ root, till }"_s, u"{ root, daemon }"_s);
    const QTemporaryDir folder;
    const auto check = [&](const QString &text) {
        QFile file(folder.filePath(u"rules"_s));
        if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0)
            qFatal("%s", qPrintable(file.errorString()));
        file.close();
        return run(tool, {u"-c"_s, u"-f"_s, file.fileName()});
    };
    if (tool.isEmpty() || check(u"table inet x\n"_s).exitCode != 0) {
        qInfo("nft is missing or may not ask the kernel: the syntax of the rules was not checked");
        return;
    }
    const Result accepted = check(rules);
    QVERIFY2(accepted.exitCode == 0, qPrintable(accepted.output));
    QVERIFY(check(rules.replace(u"skuid"_s, u"skuidd"_s)).exitCode != 0);
}

QTEST_GUILESS_MAIN(TestPackaging)
#include "tst_packaging.moc"
