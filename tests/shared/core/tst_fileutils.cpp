#include "shared/core/fileutils.h"
#include "tests/support/realfunction.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

/// What the system says of a renaming; 0: what it really says.
int renameError = 0;

} // namespace

/// Replaces the C library's function in this process.
extern "C" int rename(const char *from, const char *to) noexcept
{
    static const auto next = realFunction<int(const char *, const char *)>("rename");
    if (renameError == 0)
        return next(from, to);
    errno = renameError;
    return -1;
}

class TestFileUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsTheWholeFile();
    void readsNothingFromWhatIsNoFile();
    void writesCompactJson();
    void replacesTheFileAsAWhole();
    void failureKeepsTheOldFile();
    void appends();
    void diskThatBecomesFull();
    void fileThatCannotBeReplaced();

private:
    QString path(const char *name) const { return folder.filePath(QString::fromLatin1(name)); }

    QTemporaryDir folder;
};

namespace {

const QJsonObject ids{{u"spasibo"_s, 10}, {u"mindbox"_s, 7}};
const QByteArray idsText = R"({"mindbox":7,"spasibo":10})";

} // namespace

void TestFileUtils::readsTheWholeFile()
{
    const QByteArray content = QByteArray("строка\r\n\0конец", 20) + QByteArray(1 << 20, 'x');
    QFile file(path("content"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
    file.close();
    QCOMPARE(fileutils::readFromFile(file.fileName(), QIODevice::ReadOnly), content);
    QCOMPARE(fileutils::readFromFile(file.fileName(), QIODevice::ReadOnly | QIODevice::Text).size(),
             content.size() - 1);
}

void TestFileUtils::readsNothingFromWhatIsNoFile()
{
    QCOMPARE(fileutils::readFromFile(path("missing"), QIODevice::ReadOnly), QByteArray());
    QCOMPARE(fileutils::readFromFile(folder.path(), QIODevice::ReadOnly), QByteArray());
    QCOMPARE(fileutils::readFromFile(QString(), QIODevice::ReadOnly), QByteArray());
    QVERIFY(!QFile::exists(path("missing")));
}

void TestFileUtils::writesCompactJson()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Truncate;
    QVERIFY(fileutils::writeToFile(path("ids.json"), ids, mode));
    QCOMPARE(fileutils::readFromFile(path("ids.json"), QIODevice::ReadOnly), idsText);
    QVERIFY(fileutils::writeToFile(path("ids.json"), {}, mode));
    QCOMPARE(fileutils::readFromFile(path("ids.json"), QIODevice::ReadOnly), "{}");
    QCOMPARE(QDir(folder.path()).entryList({u"ids.json*"_s}), QStringList{u"ids.json"_s});
}

void TestFileUtils::replacesTheFileAsAWhole()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Truncate;
    QVERIFY(fileutils::writeToFile(path("whole.json"), ids, mode));
    // A program that has the old file open continues to read the old file.
    QFile old(path("whole.json"));
    QVERIFY(old.open(QIODevice::ReadOnly));
    QVERIFY(fileutils::writeToFile(path("whole.json"), {{u"loya"_s, 1}}, mode));
    QCOMPARE(old.readAll(), idsText);
    QCOMPARE(fileutils::readFromFile(path("whole.json"), QIODevice::ReadOnly), R"({"loya":1})");
}

void TestFileUtils::failureKeepsTheOldFile()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Truncate;
    QVERIFY(!fileutils::writeToFile(path("missing/ids.json"), ids, mode));
    QVERIFY(!fileutils::writeToFile(path("missing/ids.json"), ids, QIODevice::WriteOnly));
    QVERIFY(!fileutils::writeToFile(folder.path(), ids, mode));
    // A device that is always full, for a short text and for one that no buffer takes.
    QVERIFY(!fileutils::writeToFile(u"/dev/full"_s, ids, QIODevice::WriteOnly));
    QVERIFY(!fileutils::writeToFile(u"/dev/full"_s, {{u"long"_s, QString(1 << 20, u'x')}},
                                    QIODevice::WriteOnly));
}

void TestFileUtils::appends()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Append;
    QVERIFY(fileutils::writeToFile(path("appended"), ids, mode));
    QVERIFY(fileutils::writeToFile(path("appended"), ids, mode));
    QCOMPARE(fileutils::readFromFile(path("appended"), QIODevice::ReadOnly), idsText + idsText);
}

void TestFileUtils::diskThatBecomesFull()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Truncate;
    QVERIFY(fileutils::writeToFile(path("full.json"), ids, mode));
    rlimit former = {};
    QCOMPARE(::getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerHandler = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit full{4, former.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &full), 0);
    const bool isShortWritten = fileutils::writeToFile(path("full.json"), {{u"loya"_s, 1}}, mode);
    const bool isLongWritten =
        fileutils::writeToFile(path("full.json"), {{u"long"_s, QString(1 << 20, u'x')}}, mode);
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &former), 0);
    ::signal(SIGXFSZ, formerHandler);
    QCOMPARE(fileutils::readFromFile(path("full.json"), QIODevice::ReadOnly), idsText);
    QVERIFY(!isShortWritten);
    QVERIFY(!isLongWritten);
    QCOMPARE(fileutils::readFromFile(path("full.json"), QIODevice::ReadOnly), idsText);
}

/// The new file is complete, but cannot replace the former one.
void TestFileUtils::fileThatCannotBeReplaced()
{
    constexpr auto mode = QIODevice::WriteOnly | QIODevice::Truncate;
    QVERIFY(fileutils::writeToFile(path("kept.json"), ids, mode));
    renameError = EACCES;
    const bool isWritten = fileutils::writeToFile(path("kept.json"), {{u"loya"_s, 1}}, mode);
    renameError = 0;
    QVERIFY(!isWritten);
    QCOMPARE(fileutils::readFromFile(path("kept.json"), QIODevice::ReadOnly), idsText);
}

QTEST_GUILESS_MAIN(TestFileUtils)
#include "tst_fileutils.moc"
