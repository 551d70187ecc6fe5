#include "tests/support/logcapture.h"

#include "shared/core/config.h"
#include "shared/core/setting.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr Setting<std::chrono::seconds> period{
    .key = u"till:period",
    .defaultValue = 20,
    .smallest = 1,
    .about = u"Time between two polls.",
};
constexpr Setting<std::chrono::milliseconds> patience{
    .key = u"till:patience",
    .defaultValue = 1500,
    .about = u"Time to wait.",
};
constexpr Setting<int> offset{.key = u"till:offset", .defaultValue = 5, .about = u"A."};
constexpr Setting<bool> isOpen{.key = u"till:open", .defaultValue = true, .about = u"A."};
constexpr Setting<QString> name{.key = u"till:name", .defaultValue = u"first", .about = u"A."};
constexpr Setting<QString> address{.key = u"till:address", .about = u"A."};
constexpr Setting<QStringList> codes{
    .key = u"till:codes", .defaultValue = u"1, 2,3", .about = u"A."};
constexpr SettingPattern desks{
    .section = u"desks",
    .names = u"desk, by its name",
    .example = u"front = open",
    .about = u"States of desks.",
};

} // namespace

/// Settings as constants: what they read, and the defaults without a file.
class TestSetting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void defaultsHoldWithoutAFile();
    void anEmptyDefaultIsNull();
    void filesHold();
    void anotherDefault();
    void noNumberGivesTheDefault();
    void smallest_data();
    void smallest();
    void keysFromOutside();

private:
    void write(const QByteArray &content);

    std::unique_ptr<QTemporaryDir> folder;
};

void TestSetting::write(const QByteArray &content)
{
    QFile file(folder->filePath(u"a.ini"_s));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    Config::setConfigsPathList({QDir(folder->path())}, {});
}

void TestSetting::init()
{
    folder = std::make_unique<QTemporaryDir>();
    Config::setConfigsPathList({QDir(folder->path())}, {});
}

void TestSetting::defaultsHoldWithoutAFile()
{
    QCOMPARE(period.value(), 20s);
    QCOMPARE(patience.value(), 1500ms);
    QCOMPARE(offset.value(), 5);
    QCOMPARE(isOpen.value(), true);
    QCOMPARE(name.value(), u"first"_s);
    QCOMPARE(codes.value(), (QStringList{u"1"_s, u"2"_s, u"3"_s}));
}

void TestSetting::anEmptyDefaultIsNull()
{
    // A database driver distinguishes an empty account name from a missing one.
    QVERIFY(address.value().isNull());
    write("[till]\naddress =\n");
    QVERIFY(address.value().isEmpty());
}

void TestSetting::filesHold()
{
    write(
        "[till]\nperiod = 7\npatience = 20\noffset = 6\nopen = no\nname = second\ncodes = 4,5\naddress = http://a\n");
    QCOMPARE(period.value(), 7s);
    QCOMPARE(patience.value(), 20ms);
    QCOMPARE(offset.value(), 6);
    QCOMPARE(offset.valueOr(3), 6);
    QCOMPARE(isOpen.value(), false);
    QCOMPARE(name.value(), u"second"_s);
    QCOMPARE(codes.value(), (QStringList{u"4"_s, u"5"_s}));
    QCOMPARE(address.value(), u"http://a"_s);
    QCOMPARE(period.valueOr(3s), 7s);
    QCOMPARE(name.valueOr(u"third"_s), u"second"_s);
    QCOMPARE(isOpen.valueOr(true), false);
}

void TestSetting::anotherDefault()
{
    QCOMPARE(period.valueOr(3s), 3s);
    QCOMPARE(offset.valueOr(3), 3);
    QCOMPARE(isOpen.valueOr(false), false);
    QCOMPARE(patience.valueOr(2ms), 2ms);
    QCOMPARE(name.valueOr(u"third"_s), u"third"_s);
    QCOMPARE(codes.valueOr({u"8"_s, u"9"_s}), (QStringList{u"8"_s, u"9"_s}));
}

void TestSetting::noNumberGivesTheDefault()
{
    LogCapture log(u"config"_s);
    write("[till]\nperiod = soon\nopen = perhaps\n");
    QCOMPARE(period.value(), 20s);
    QCOMPARE(period.value(), 20s);
    QCOMPARE(patience.value(), 1500ms);
    QCOMPARE(offset.value(), 5);
    QCOMPARE(isOpen.value(), true);
    QCOMPARE(log.lines().size(), 2);
    QVERIFY2(log.lines().first().contains(u"till:period"_s), qPrintable(log.lines().first()));
}

void TestSetting::smallest_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("expectedPeriod");
    QTest::addColumn<int>("expectedOffset");
    QTest::newRow("negative") << QByteArray("-3") << 1 << -3;
    QTest::newRow("0") << QByteArray("0") << 1 << 0;
    QTest::newRow("the smallest") << QByteArray("1") << 1 << 1;
    QTest::newRow("above") << QByteArray("2") << 2 << 2;
}

void TestSetting::smallest()
{
    QFETCH(const QByteArray, text);
    write("[till]\nperiod = " + text + "\noffset = " + text + "\n");
    QTEST(int(period.value().count()), "expectedPeriod");
    // A number without a smallest value is not limited.
    QTEST(offset.value(), "expectedOffset");
}

void TestSetting::keysFromOutside()
{
    write("[desks]\nfront = open\n");
    QCOMPARE(desks.key(u"front"_s), u"desks:front"_s);
    QCOMPARE(desks.value(u"front"_s, u"closed"_s), u"open"_s);
    QCOMPARE(desks.value(u"back"_s, u"closed"_s), u"closed"_s);
}

QTEST_GUILESS_MAIN(TestSetting)
#include "tst_setting.moc"
