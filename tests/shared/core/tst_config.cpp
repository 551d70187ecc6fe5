#include "shared/core/config.h"
#include "shared/core/singleton.h"
#include "tests/support/logcapture.h"

#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <chrono>
#include <csignal>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// The offset of the process clock from the clock that stamps its files.
std::atomic<qint64> clockOffsetSeconds = 0;

} // namespace

/// Replaces the C library's function in this process: setting the machine's clock takes root and
/// would disturb every other program.
extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && clock == CLOCK_REALTIME)
        time->tv_sec += clockOffsetSeconds;
    return static_cast<int>(result);
}

class TestConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void absentKeyGivesTheDefault();
    void values_data();
    void values();
    void keys_data();
    void keys();
    void integers_data();
    void integers();
    void booleans_data();
    void booleans();
    void lists_data();
    void lists();
    void defaultOfAList();
    void laterFilesWin();
    void onlyIniFilesAreRead();
    void onlyNamedFiles();
    void otherFoldersReplaceTheFormer();
    void missingDirectory();
    void emptyFile();
    void longLines_data();
    void longLines();
    void byteOrderMarkAndCarriageReturns();
    void brokenFirstReading_data();
    void brokenFirstReading();
    void brokenLineAfterAGoodReading();
    void brokenFileIsRepaired();
    void unreadableFileAtFirst();
    void unreadableFileAfterAGoodReading();
    void valuesOfADeletedFileEnd();
    void vanishedDirectoryKeepsItsValues();
    void vanishedDirectoriesKeepTheirOrder();
    void unreadableDirectoryKeepsItsValues();
    void changeIsSeen_data();
    void changeIsSeen();
    void newFileIsSeen();
    void clockSetBack();
    void addedFileIsOnTop();
    void addedFileReadTwiceReplacesItself();
    void addedFileThatIsMissing();
    void warningsComeOnce();
    void unchangedValueTakesNoSystemCall();
    void severalThreads();

private:
    void write(const QString &name, const QByteArray &text);
    void use(const QStringList &directories = {u"."_s}, const QStringList &files = {});
    QString get(const QString &key) const { return config->getString(key, u"default"_s); }
    QString path(const QString &name) const { return folder->filePath(name); }

    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<LogCapture> log;
    Config *config = nullptr;
};

void TestConfig::init()
{
    folder = std::make_unique<QTemporaryDir>();
    log = std::make_unique<LogCapture>(u"config"_s);
    // Each test has its own object; otherwise files and warnings of one test would affect another.
    config = new Config;
    delete Singleton<Config>::replace(config);
}

void TestConfig::cleanup()
{
    delete Singleton<Config>::replace(nullptr);
    log.reset();
}

void TestConfig::write(const QString &name, const QByteArray &text)
{
    QDir().mkpath(QFileInfo(path(name)).path());
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("%s: %s", qPrintable(name), qPrintable(file.errorString()));
}

void TestConfig::use(const QStringList &directories, const QStringList &files)
{
    QList<QDir> list;
    for (const QString &directory : directories)
        list.append(QDir(QDir::cleanPath(path(directory))));
    Config::setConfigsPathList(list, files);
}

void TestConfig::absentKeyGivesTheDefault()
{
    write(u"a.ini"_s, "[queue]\nport = 1\n");
    use();
    QCOMPARE(get(u"queue:timeout"_s), u"default"_s);
    QCOMPARE(get(u"other:port"_s), u"default"_s);
    QCOMPARE(get(u"port"_s), u"default"_s);
    QCOMPARE(config->getInt(u"queue:timeout"_s, 20), 20);
    QCOMPARE(config->getBool(u"queue:timeout"_s, true), true);
    QCOMPARE(config->getStringList(u"queue:timeout"_s, QString()), QStringList());
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::values_data()
{
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("expected");
    const auto same = [](const char *text) {
        QTest::newRow(text) << QByteArray(text) << QString::fromUtf8(text);
    };
    same("a,b , c");
    same("C:\\temp\\n");
    same("\\");
    same("one; two ;three");
    same("one # two");
    same("100%, %1 %20");
    same("\"quoted\"");
    same("it's");
    same("user=name&x=y");
    same("http://host:8080/path?a=b:c");
    same("[not a section]");
    same("Плати QR");
    same("@Variant(\\0)");
    same("${HOME} $(id)");
    QTest::newRow("blanks around") << QByteArray("\t a b \t") << u"a b"_s;
    QTest::newRow("empty") << QByteArray() << u""_s;
}

void TestConfig::values()
{
    QFETCH(QByteArray, written);
    QFETCH(QString, expected);
    write(u"a.ini"_s, "[s]\nkey = " + written + "\nnext=1\ntight=" + written + "\n");
    use();
    QCOMPARE(get(u"s:key"_s), expected);
    QCOMPARE(get(u"s:tight"_s), expected);
    QCOMPARE(get(u"s:next"_s), u"1"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::keys_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const QByteArray &file, const QString &key,
                        const QString &expected) {
        QTest::newRow(name) << file << key << expected;
    };
    row("plain", "[queue]\nport=1", u"queue:port"_s, u"1"_s);
    row("dots", "[ApMindbox.Redirect]\nOffline.GetCustomer=1",
        u"ApMindbox.Redirect:Offline.GetCustomer"_s, u"1"_s);
    row("several colons", "[s]\na:b:c = d:e", u"s:a:b:c"_s, u"d:e"_s);
    row("colon and long line", "[s]\na:b = " + QByteArray(1000, ':'), u"s:a:b"_s,
        QString(1000, u':'));
    row("section with a colon", "[a]\nb:c=1\n[a:b]\nc=2", u"a:b:c"_s, u"1"_s);
    row("another section's key", "[a]\nb=1\n[c]\nb=2", u"a:b"_s, u"1"_s);
    row("section twice", "[a]\nb=1\n[c]\nb=2\n[a]\nd=3", u"a:d"_s, u"3"_s);
    row("key twice", "[a]\nb=1\nb=2", u"a:b"_s, u"2"_s);
    row("no section", "b=1\n[a]\nb=2", u"b"_s, u"1"_s);
    row("section's case", "[Queue]\nport=1", u"queue:port"_s, u"default"_s);
    row("key's case", "[queue]\nPort=1", u"queue:port"_s, u"default"_s);
    row("Russian", "[раздел]\nключ=значение", u"раздел:ключ"_s, u"значение"_s);
    row("indented", "[a]\n  b = 1\n    c = 2", u"a:c"_s, u"2"_s);
    row("comments", "; [a]\n[a]\n# b=1\n;b=2\n  ; b=3\nc=4", u"a:b"_s, u"default"_s);
    row("after comments with colons", "[a]\n; x:y=z\n# x:y=z\nc=4", u"a:c"_s, u"4"_s);
    row("last line without an end", "[a]\nb=1\nc=2", u"a:c"_s, u"2"_s);
}

void TestConfig::keys()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    write(u"a.ini"_s, file);
    use();
    QCOMPARE(get(key), expected);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::integers_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("expected");
    QTest::addColumn<bool>("isWarned");
    QTest::newRow("number") << QByteArray("28085") << 28085 << false;
    QTest::newRow("zero") << QByteArray("0") << 0 << false;
    QTest::newRow("negative") << QByteArray("-5") << -5 << false;
    QTest::newRow("largest") << QByteArray("2147483647") << 2147483647 << false;
    QTest::newRow("too large") << QByteArray("2147483648") << 7 << true;
    QTest::newRow("empty") << QByteArray("") << 7 << true;
    QTest::newRow("word") << QByteArray("twenty") << 7 << true;
    QTest::newRow("unit") << QByteArray("20 s") << 7 << true;
    QTest::newRow("fraction") << QByteArray("2.5") << 7 << true;
    QTest::newRow("comment after it") << QByteArray("20 ; seconds") << 7 << true;
}

void TestConfig::integers()
{
    QFETCH(QByteArray, text);
    QFETCH(int, expected);
    QFETCH(bool, isWarned);
    write(u"a.ini"_s, "\n[queue]\ntimeout = " + text + "\n");
    use();
    QCOMPARE(config->getInt(u"queue:timeout"_s, 7), expected);
    QCOMPARE(config->getInt(u"queue:timeout"_s, 7), expected);
    QStringList warnings;
    if (isWarned)
        warnings.append(
            u"WARN Файл настроек '%1', строка 3: значение '%2' параметра queue:timeout не является "
            "целым числом, взято значение по умолчанию 7"_s.arg(path(u"a.ini"_s),
                                                                QString::fromUtf8(text)));
    QCOMPARE(log->lines(), warnings);
}

void TestConfig::booleans_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("withFalse");
    QTest::addColumn<bool>("withTrue");
    for (const char *text : {"true", "yes", "on", "1", "True", "YES", "oN"})
        QTest::newRow(text) << QByteArray(text) << true << true;
    for (const char *text : {"false", "no", "off", "0", "False", "NO", "oFF"})
        QTest::newRow(text) << QByteArray(text) << false << false;
    for (const char *text : {"", "2", "да", "truth", "enabled"})
        QTest::newRow(*text ? text : "empty") << QByteArray(text) << false << true;
}

void TestConfig::booleans()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, withFalse);
    QFETCH(bool, withTrue);
    write(u"a.ini"_s, "[s]\nkey = " + text + "\n");
    use();
    QCOMPARE(config->getBool(u"s:key"_s, false), withFalse);
    QCOMPARE(config->getBool(u"s:key"_s, true), withTrue);
    const bool isKnown = withFalse == withTrue;
    QCOMPARE(log->lines().isEmpty(), isKnown);
    for (const QString &line : log->lines())
        QVERIFY2(
            line.startsWith(u"WARN Файл настроек '%1', строка 2: значение '%2' параметра s:key "
                            "не является логическим значением, "_s.arg(path(u"a.ini"_s),
                                                                       QString::fromUtf8(text))),
            qPrintable(line));
}

void TestConfig::lists_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("one") << QByteArray("a") << QStringList{u"a"_s};
    QTest::newRow("several") << QByteArray("a,b,c") << QStringList{u"a"_s, u"b"_s, u"c"_s};
    QTest::newRow("blanks") << QByteArray(" a , b c ,\td ")
                            << QStringList{u"a"_s, u"b c"_s, u"d"_s};
    QTest::newRow("empty entries") << QByteArray(",a,, ,b,") << QStringList{u"a"_s, u"b"_s};
    QTest::newRow("nothing") << QByteArray("") << QStringList();
    QTest::newRow("quotes stay") << QByteArray("\"a,b\"") << QStringList{u"\"a"_s, u"b\""_s};
}

void TestConfig::lists()
{
    QFETCH(QByteArray, text);
    QFETCH(QStringList, expected);
    write(u"a.ini"_s, "[s]\nkey = " + text + "\n");
    use();
    QCOMPARE(config->getStringList(u"s:key"_s, u"x,y"_s), expected);
}

void TestConfig::defaultOfAList()
{
    use();
    QCOMPARE(config->getStringList(u"s:key"_s, u"x, y"_s), (QStringList{u"x"_s, u"y"_s}));
}

void TestConfig::laterFilesWin()
{
    write(u"one/b.ini"_s, "[s]\nfirst=1b\nsecond=1b\nthird=1b\n");
    write(u"one/a.ini"_s, "[s]\nfirst=1a\nsecond=1a\nthird=1a\nfourth=1a\n");
    write(u"two/a.ini"_s, "[s]\nsecond=2a\nthird=2a\n");
    write(u"three/0.ini"_s, "[s]\nthird=3\n");
    use({u"one"_s, u"two"_s, u"three"_s});
    QCOMPARE(get(u"s:first"_s), u"1b"_s);
    QCOMPARE(get(u"s:second"_s), u"2a"_s);
    QCOMPARE(get(u"s:third"_s), u"3"_s);
    QCOMPARE(get(u"s:fourth"_s), u"1a"_s);
    use({u"three"_s, u"two"_s, u"one"_s});
    QCOMPARE(get(u"s:third"_s), u"1b"_s);
}

void TestConfig::onlyIniFilesAreRead()
{
    write(u"a.ini.bak"_s, "[s]\nkey=1\n");
    write(u"a.INI"_s, "[s]\nkey=2\n");
    write(u"a.conf"_s, "[s]\nkey=3\n");
    write(u"below/a.ini"_s, "[s]\nkey=4\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"default"_s);
}

void TestConfig::onlyNamedFiles()
{
    write(u"one/a.ini"_s, "[s]\na=1\n");
    write(u"one/b.ini"_s, "[s]\nb=1\n");
    write(u"one/c.conf"_s, "[s]\nc=1\n");
    write(u"two/c.conf"_s, "[s]\nc=2\n");
    use({u"one"_s, u"two"_s}, {u"a.ini"_s, u"c.conf"_s, u"missing.ini"_s});
    QCOMPARE(get(u"s:a"_s), u"1"_s);
    QCOMPARE(get(u"s:b"_s), u"default"_s);
    QCOMPARE(get(u"s:c"_s), u"2"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::otherFoldersReplaceTheFormer()
{
    write(u"one/a.ini"_s, "[s]\nkey=1\n");
    QVERIFY(QDir().mkpath(path(u"two"_s)));
    use({u"one"_s});
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    // Nothing can be read there; this must not be mistaken for an unchanged folder.
    use({u"two"_s});
    QCOMPARE(get(u"s:key"_s), u"default"_s);
}

void TestConfig::missingDirectory()
{
    write(u"there/a.ini"_s, "[s]\nkey=1\n");
    use({u"missing"_s, u"there"_s, u"missing too"_s});
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    use({u"missing"_s, u"there"_s, u"missing too"_s});
    QCOMPARE(log->lines(), QStringList{u"INFO Каталогов настроек нет: %1, %2"_s.arg(
                               path(u"missing"_s), path(u"missing too"_s))});
    write(u"missing/a.ini"_s, "[s]\nother=2\n");
    QTRY_COMPARE(get(u"s:other"_s), u"2"_s);
    QCOMPARE(log->lines().size(), 1);
}

void TestConfig::emptyFile()
{
    write(u"a.ini"_s, "");
    use();
    QCOMPARE(get(u"s:key"_s), u"default"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::longLines_data()
{
    QTest::addColumn<int>("length");
    for (const int length : {190, 198, 199, 200, 201, 202, 400, 1000, 100'000})
        QTest::addRow("%d", length) << length;
}

void TestConfig::longLines()
{
    QFETCH(int, length);
    // In a value whose neighbouring characters all differ, a lost or repeated piece is noticed.
    QByteArray value;
    for (int at = 0; value.size() < length; ++at)
        value += QByteArray::number(at) + ';';
    value.truncate(length);
    write(u"a.ini"_s, "[s]\nkey=" + value + "\nnext=" + value + "\nbroken\n");
    use();
    QCOMPARE(get(u"s:key"_s), QString::fromUtf8(value));
    QCOMPARE(get(u"s:next"_s), QString::fromUtf8(value));
    QCOMPARE(log->lines().size(), 1);
    QVERIFY2(log->lines().constFirst().contains(u"строка 4:"), qPrintable(log->lines().at(0)));
}

void TestConfig::byteOrderMarkAndCarriageReturns()
{
    write(u"a.ini"_s, "\xEF\xBB\xBF[s]\r\nkey = value\r\nnext=1\r\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"value"_s);
    QCOMPARE(get(u"s:next"_s), u"1"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::brokenFirstReading_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("no value") << QByteArray("nonsense");
    QTest::newRow("open section") << QByteArray("[section");
    QTest::newRow("value in another encoding") << QByteArray("other = \xCF\xEB\xE0\xF2\xE8");
    QTest::newRow("key in another encoding") << QByteArray("\xCF\xEB = 1");
    QTest::newRow("cut letter") << QByteArray("other = \xD0");
}

void TestConfig::brokenFirstReading()
{
    QFETCH(QByteArray, line);
    write(u"a.ini"_s, "[s]\nbefore=1\n" + line + "\nafter=2\n");
    use();
    QCOMPARE(get(u"s:before"_s), u"1"_s);
    QCOMPARE(get(u"s:other"_s), u"default"_s);
    QCOMPARE(get(u"s:after"_s), u"2"_s);
    QCOMPARE(log->lines(),
             QStringList{
                 u"WARN Файл настроек '%1', строка 3: ожидается '[раздел]' или 'ключ = значение' в "
                 "UTF-8, строка пропущена"_s.arg(path(u"a.ini"_s))});
}

void TestConfig::brokenLineAfterAGoodReading()
{
    write(u"a.ini"_s, "[s]\nkey=1\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    write(u"a.ini"_s, "[s]\nnonsense\nkey=2\nmore=3\n");
    QTRY_COMPARE(log->lines().size() + (get(u"s:key"_s) == u"1"_s ? 0 : 100), 1);
    QCOMPARE(log->lines(),
             QStringList{
                 u"WARN Файл настроек '%1', строка 2: ожидается '[раздел]' или 'ключ = значение' в "
                 "UTF-8, действуют прежние значения"_s.arg(path(u"a.ini"_s))});
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    QCOMPARE(get(u"s:more"_s), u"default"_s);
}

void TestConfig::brokenFileIsRepaired()
{
    write(u"a.ini"_s, "[s]\nkey=1\nnonsense\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    // The file was never good: its readable lines are used, although it has mistakes.
    write(u"a.ini"_s, "[s]\nkey=2\nother\nnonsense\n");
    QTRY_COMPARE(get(u"s:key"_s), u"2"_s);
    write(u"a.ini"_s, "[s]\nkey=3\n");
    QTRY_COMPARE(get(u"s:key"_s), u"3"_s);
    write(u"a.ini"_s, "[s]\nkey=4\nnonsense\n");
    // After a repair, a new fault in the same line is logged again.
    QTRY_COMPARE(0 * get(u"s:key"_s).size() + log->lines().size(), 2);
    QCOMPARE(get(u"s:key"_s), u"3"_s);
}

void TestConfig::unreadableFileAtFirst()
{
    // A link to nowhere is unreadable for root too.
    QVERIFY(QFile::link(path(u"nowhere"_s), path(u"a.ini"_s)));
    write(u"b.ini"_s, "[s]\nkey=1\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    QCOMPARE(log->lines().size(), 1);
    QVERIFY2(log->lines().at(0).startsWith(
                 u"WARN Не удалось прочитать файл настроек '%1': "_s.arg(path(u"a.ini"_s))),
             qPrintable(log->lines().at(0)));
}

void TestConfig::unreadableFileAfterAGoodReading()
{
    write(u"a.ini"_s, "[s]\nkey=1\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    QVERIFY(QFile::remove(path(u"a.ini"_s)));
    QVERIFY(QDir().mkdir(path(u"a.ini"_s)));
    QTRY_COMPARE(0 * get(u"s:key"_s).size() + log->lines().size(), 1);
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    QVERIFY(QDir().rmdir(path(u"a.ini"_s)));
    write(u"a.ini"_s, "[s]\nkey=2\n");
    QTRY_COMPARE(get(u"s:key"_s), u"2"_s);
}

void TestConfig::valuesOfADeletedFileEnd()
{
    write(u"a.ini"_s, "[s]\nkey=1\n");
    write(u"b.ini"_s, "[s]\nkey=2\n");
    use();
    QCOMPARE(get(u"s:key"_s), u"2"_s);
    QVERIFY(QFile::remove(path(u"b.ini"_s)));
    QTRY_COMPARE(get(u"s:key"_s), u"1"_s);
    QVERIFY(QFile::remove(path(u"a.ini"_s)));
    QTRY_COMPARE(get(u"s:key"_s), u"default"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::vanishedDirectoryKeepsItsValues()
{
    write(u"conf/a.ini"_s, "[s]\nkey=1\n");
    use({u"conf"_s});
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    QVERIFY(QDir().rename(path(u"conf"_s), path(u"away"_s)));
    // One warning about the folder, one about the file.
    QTRY_COMPARE(0 * get(u"s:key"_s).size() + log->lines().size(), 2);
    QCOMPARE(log->lines().at(0),
             u"WARN Каталог настроек '%1' исчез, действуют последние значения из него"_s.arg(
                 path(u"conf"_s)));
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    write(u"conf/a.ini"_s, "[s]\nkey=2\n");
    QTRY_COMPARE(get(u"s:key"_s), u"2"_s);
}

void TestConfig::vanishedDirectoriesKeepTheirOrder()
{
    constexpr int count = 8;
    QByteArray outer = "[s]\n";
    for (int i = 0; i < count; ++i) {
        outer += "key" + QByteArray::number(i) + "=outer\n";
        write(u"conf/d/%1.ini"_s.arg(i), "[s]\nkey" + QByteArray::number(i) + "=inner\n");
    }
    write(u"conf/a.ini"_s, outer);
    use({u"conf/d"_s, u"conf"_s});
    QVERIFY(QDir().rename(path(u"conf"_s), path(u"away"_s)));
    // A file that is added has the values computed again.
    write(u"b.ini"_s, "[t]\nkey=1\n");
    config->readFile(path(u"b.ini"_s), QString());
    QCOMPARE(get(u"t:key"_s), u"1"_s);
    for (int i = 0; i < count; ++i)
        QCOMPARE(get(u"s:key%1"_s.arg(i)), u"outer"_s);
}

void TestConfig::unreadableDirectoryKeepsItsValues()
{
    write(u"conf/a.ini"_s, "[s]\nkey=1\n");
    use({u"conf"_s});
    QCOMPARE(get(u"s:key"_s), u"1"_s);
    const QByteArray directory = QFile::encodeName(path(u"conf"_s));
    // Root may read everything. Rights are checked for the real account, so only that one changes.
    const uid_t former = getuid();
    constexpr uid_t nobody = 65534;
    constexpr auto unchanged = static_cast<uid_t>(-1);
    if (former == 0 && setresuid(nobody, unchanged, unchanged) != 0)
        QSKIP("this root cannot take another account");
    {
        const auto restore = qScopeGuard([&] {
            [[maybe_unused]] const int result = setresuid(former, unchanged, unchanged);
            chmod(directory.constData(), 0700);
        });
        QCOMPARE(chmod(directory.constData(), 0), 0);
        const QString text =
            u"WARN Каталог настроек '%1' недоступен для чтения, проверьте права"_s.arg(
                path(u"conf"_s));
        QTRY_VERIFY2(get(u"s:key"_s) == u"1" && log->lines().contains(text),
                     qPrintable(log->lines().join(u'\n')));
    }
    write(u"conf/a.ini"_s, "[s]\nkey=2\n");
    QTRY_COMPARE(get(u"s:key"_s), u"2"_s);
}

void TestConfig::changeIsSeen_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::newRow("written in place") << false;
    QTest::newRow("replaced by another file") << true;
}

void TestConfig::changeIsSeen()
{
    QFETCH(bool, isReplaced);
    write(u"a.ini"_s, "[s]\nkey=0\n");
    use();
    // Of the same length, some of them written within one tick of the file system's clock.
    for (int value = 1; value <= 9; ++value) {
        const QByteArray text = "[s]\nkey=" + QByteArray::number(value) + "\n";
        if (isReplaced) {
            write(u"new"_s, text);
            QCOMPARE(rename(qPrintable(path(u"new"_s)), qPrintable(path(u"a.ini"_s))), 0);
        } else {
            write(u"a.ini"_s, text);
        }
        const auto written = std::chrono::steady_clock::now();
        auto seen = written;
        while (config->getInt(u"s:key"_s, -1) != value) {
            seen = std::chrono::steady_clock::now();
            QVERIFY(seen - written < std::chrono::milliseconds(200));
        }
    }
}

void TestConfig::newFileIsSeen()
{
    use();
    QCOMPARE(get(u"s:key"_s), u"default"_s);
    write(u"a.ini"_s, "[s]\nkey=1\n");
    QTRY_COMPARE_WITH_TIMEOUT(get(u"s:key"_s), u"1"_s, 2000);
}

void TestConfig::clockSetBack()
{
    write(u"a.ini"_s, "[s]\nkey=0\n");
    use();
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    QVERIFY(inotify_add_watch(watch, qPrintable(path(u"a.ini"_s)), IN_OPEN) >= 0);
    const auto readings = [this, watch](int looks) {
        QByteArray events(4096, '\0');
        while (::read(watch, events.data(), static_cast<size_t>(events.size())) > 0)
            continue;
        int count = 0;
        for (int look = 0; look < looks; ++look) {
            // The value of the marker shows that the folder was read again.
            const QString marker = u"marker%1.ini"_s.arg(look);
            write(marker, "[marker]\nkey=" + QByteArray::number(look + 1) + "\n");
            [&] {
                QTRY_COMPARE(config->getInt(u"marker:key"_s, 0), look + 1);
            }();
            const ssize_t size = ::read(watch, events.data(), static_cast<size_t>(events.size()));
            count += size < 0 ? 0 : static_cast<int>(size / qint64(sizeof(inotify_event)));
            QFile::remove(path(marker));
            [&] {
                QTRY_COMPARE(config->getInt(u"marker:key"_s, 0), 0);
            }();
        }
        return count;
    };

    clockOffsetSeconds = -3600;
    const auto clock = qScopeGuard([] { clockOffsetSeconds = 0; });
    // At the first check the file is as young as it was when the clock was set.
    readings(1);
    QCOMPARE(readings(5), 0);

    write(u"a.ini"_s, "[s]\nkey=1\n");
    QTRY_COMPARE(config->getInt(u"s:key"_s, -1), 1);
    close(watch);
}

void TestConfig::addedFileIsOnTop()
{
    write(u"conf/z.ini"_s, "[s]\nkey=1\nother=1\n");
    write(u"atolpay.ini"_s, "[s]\nkey=2\n");
    use({u"conf"_s});
    config->readFile(path(u"atolpay.ini"_s), QString());
    QCOMPARE(get(u"s:key"_s), u"2"_s);
    QCOMPARE(get(u"s:other"_s), u"1"_s);
    write(u"second.ini"_s, "[s]\nkey=3\n");
    config->readFile(path(u"second.ini"_s), QString());
    QCOMPARE(get(u"s:key"_s), u"3"_s);
    config->readFile(path(u"atolpay.ini"_s), QString());
    QCOMPARE(get(u"s:key"_s), u"2"_s);
}

void TestConfig::addedFileReadTwiceReplacesItself()
{
    write(u"atolpay.ini"_s, "[s]\nkey=1\ngone=1\n");
    config->readFile(path(u"atolpay.ini"_s), QString());
    QCOMPARE(get(u"s:gone"_s), u"1"_s);
    write(u"atolpay.ini"_s, "[s]\nkey=2\n");
    config->readFile(path(u"atolpay.ini"_s), QString());
    QCOMPARE(get(u"s:key"_s), u"2"_s);
    QCOMPARE(get(u"s:gone"_s), u"default"_s);
    QCOMPARE(log->lines(), QStringList());
}

void TestConfig::addedFileThatIsMissing()
{
    config->readFile(path(u"atolpay.ini"_s), QString());
    config->readFile(path(u"atolpay.ini"_s), QString());
    QCOMPARE(get(u"s:key"_s), u"default"_s);
    QCOMPARE(log->lines().size(), 1);
    QVERIFY2(log->lines().at(0).startsWith(
                 u"WARN Не удалось прочитать файл настроек '%1': "_s.arg(path(u"atolpay.ini"_s))),
             qPrintable(log->lines().at(0)));
    write(u"atolpay.ini"_s, "[s]\nkey=1\n");
    QTRY_COMPARE(get(u"s:key"_s), u"1"_s);
}

void TestConfig::warningsComeOnce()
{
    write(u"a.ini"_s, "[s]\nkey=word\nnonsense\n");
    use();
    // A young file is read repeatedly until its time stamp is reliable; the file after it shows
    // that this reading has happened.
    for (int round = 1; round <= 3; ++round) {
        write(u"b.ini"_s, "[t]\nkey=" + QByteArray::number(round) + "\n");
        QTRY_COMPARE(config->getInt(u"t:key"_s, 0), round);
        QCOMPARE(config->getInt(u"s:key"_s, 5), 5);
    }
    QCOMPARE(log->lines().size(), 2);
}

namespace {

volatile sig_atomic_t fileCalls = 0;

void countCall(int)
{
    fileCalls = fileCalls + 1;
}

/// From now on each call that opens, reads or examines a file fails and is counted.
void trapFileCalls()
{
    struct sigaction action = {};
    action.sa_handler = countCall;
    sigaction(SIGSYS, &action, nullptr);

    constexpr std::array calls{
#ifdef SYS_open
        SYS_open,
#endif
#ifdef SYS_stat
        SYS_stat,   SYS_lstat,      SYS_access,
#endif
        SYS_openat, SYS_newfstatat, SYS_statx,     SYS_fstat,
        SYS_read,   SYS_getdents64, SYS_faccessat, SYS_lseek};
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const long call : calls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0
        || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(100);
}

} // namespace

void TestConfig::unchangedValueTakesNoSystemCall()
{
    constexpr int tooSlow = 101;
    write(u"a.ini"_s, "[s]\nkey=1\n");

    // The filter stays for the rest of the process, so a child installs it. A child that was
    // delayed beyond the next check of the files proves nothing, and another child tries again.
    int code = tooSlow;
    while (code == tooSlow) {
        const pid_t child = fork();
        if (child == 0) {
            const auto start = std::chrono::steady_clock::now();
            use();
            trapFileCalls();
            int sum = 0;
            for (int count = 0; count < 1000; ++count)
                sum += config->getInt(u"s:key"_s, 0);
            const bool isSlow =
                std::chrono::steady_clock::now() - start > std::chrono::milliseconds(95);
            const int calls = fileCalls;
            if (calls == 0 && sum == 1000) {
                // The trap works.
                (void)access("/", F_OK);
                _exit(fileCalls == 1 ? 0 : 102);
            }
            _exit(isSlow ? tooSlow : 1);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(WIFEXITED(status));
        code = WEXITSTATUS(status);
    }
    QCOMPARE(code, 0);
}

void TestConfig::severalThreads()
{
    write(u"a.ini"_s, "[s]\nkey=0\nword=none\n");
    use();
    std::atomic<bool> isOver = false;
    std::atomic<int> strange = 0;
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([this, &isOver, &strange] {
            int last = 0;
            while (!isOver) {
                const int value = config->getInt(u"s:key"_s, -1);
                // A number never decreases, and a half-written text is never seen.
                if (value < last || config->getInt(u"s:word"_s, 7) != 7)
                    ++strange;
                last = std::max(last, value);
            }
        });
    }
    for (int value = 1; value <= 4; ++value) {
        write(u"new"_s, "[s]\nkey=" + QByteArray::number(value) + "\nword=none\n");
        QCOMPARE(rename(qPrintable(path(u"new"_s)), qPrintable(path(u"a.ini"_s))), 0);
        config->readFile(path(u"a.ini"_s), QString());
        QTRY_COMPARE(config->getInt(u"s:key"_s, -1), value);
    }
    isOver = true;
    for (std::thread &reader : readers)
        reader.join();
    QCOMPARE(strange, 0);
    QCOMPARE(log->lines().size(), 1);
}

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
