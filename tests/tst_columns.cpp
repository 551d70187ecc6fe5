#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype columns = 100;

/// The numbers of the lines that are too long. A table between `// clang-format off` and `on` has
/// the width that it needs, and so has a line with a text: a text stays whole, so that a search
/// finds it.
QList<int> longLines(const QString &source)
{
    QList<int> result;
    bool isTable = false;
    bool isRawText = false;
    int number = 0;
    const QStringList lines = source.split(u'\n');
    for (const QString &line : lines) {
        ++number;
        if (line.contains("// clang-format off"_L1))
            isTable = true;
        if (line.contains("// clang-format on"_L1))
            isTable = false;
        const bool isComment = line.trimmed().startsWith("//"_L1);
        const bool hasText = isRawText || (!isComment && line.contains(u'"'));
        if (line.contains("R\"("_L1) || line.contains("R\"x("_L1))
            isRawText = true;
        if (line.contains(")\""_L1) || line.contains(")x\""_L1))
            isRawText = false;
        if (line.size() > columns && !isTable && !hasText)
            result.append(number);
    }
    return result;
}

QString spaces(int count)
{
    return QString(count, u' ');
}

} // namespace

/// No line is longer than a hundred columns.
class TestColumns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rule_data();
    void rule();
    void sourcesFit();
};

void TestColumns::rule_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QList<int>>("expected");
    // clang-format off
    QTest::newRow("as long as it may be") << u"a"_s + spaces(98) + u";"_s                                            << QList<int>{};
    QTest::newRow("one more")             << u"a"_s + spaces(99) + u";"_s                                            << QList<int>{1};
    QTest::newRow("comment")              << u"int a;\n/// b"_s + spaces(99) + u"\"c\""_s                            << QList<int>{2};
    QTest::newRow("a text stays whole")   << u"log(\"a"_s + spaces(99) + u"\");"_s                                   << QList<int>{};
    QTest::newRow("raw text")             << u"x = R\"(\n"_s + spaces(101) + u"\n)\";\n"_s + spaces(101)             << QList<int>{4};
    QTest::newRow("table")                << u"// clang-format off\n"_s + spaces(101) + u"\n// clang-format on\n"_s + spaces(101) << QList<int>{4};
    // clang-format on
}

void TestColumns::rule()
{
    QFETCH(QString, source);
    QTEST(longLines(source), "expected");
}

void TestColumns::sourcesFit()
{
    const QDir root(QStringLiteral(QUEUE_SOURCE_DIR));
    const QStringList tops{u"app"_s,   u"handlers"_s, u"engine"_s, u"shared"_s,
                           u"tools"_s, u"rig"_s,      u"tests"_s,  u"benchmarks"_s};
    QStringList faults;
    int files = 0;
    for (const QString &top : tops) {
        QDirIterator sources(root.filePath(top), {u"*.h"_s, u"*.cpp"_s}, QDir::Files,
                             QDirIterator::Subdirectories);
        while (sources.hasNext()) {
            const QString path = sources.next();
            QFile file(path);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
            ++files;
            const QList<int> numbers = longLines(QString::fromUtf8(file.readAll()));
            for (const int number : numbers)
                faults.append(u"%1:%2"_s.arg(root.relativeFilePath(path)).arg(number));
        }
    }
    QVERIFY(files > 100);
    QVERIFY2(faults.isEmpty(), qPrintable(u"more than 100 columns:\n"_s + faults.join(u'\n')));
}

QTEST_APPLESS_MAIN(TestColumns)
#include "tst_columns.moc"
