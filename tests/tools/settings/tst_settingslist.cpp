#include "tools/settings/pages.h"
#include "tools/settings/settingslist.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString root = QStringLiteral(QUEUE_SOURCE_DIR "/");

QString read(const QString &path)
{
    QFile file(root + path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    return QString::fromUtf8(file.readAll());
}

/// The sources of the service and of the programs beside it, by path.
QMap<QString, QString> sources()
{
    QMap<QString, QString> result;
    for (const QString &folder : {u"app"_s, u"engine"_s, u"handlers"_s, u"shared"_s, u"tools"_s}) {
        QDirIterator files(root + folder, {u"*.h"_s, u"*.cpp"_s}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next().sliced(root.size());
            result.insert(path, read(path));
        }
    }
    return result;
}

/// Headers with constants that declare settings.
bool isDeclaring(const QString &path)
{
    return path.endsWith(u"settings.h");
}

/// Texts that look like the key of a setting; texts for people are longer.
QStringList keysIn(const QString &text)
{
    static const QRegularExpression literal(uR"re(u"([A-Za-z][A-Za-z.]*:[A-Za-z][A-Za-z.]*)")re"_s);
    QStringList keys;
    auto matches = literal.globalMatch(text);
    while (matches.hasNext())
        keys.append(matches.next().captured(1));
    return keys;
}

QStringList listedKeys()
{
    QStringList keys;
    for (const settings::Section &section : settings::sections()) {
        for (const settings::Entry &entry : section.entries)
            keys.append(section.name + u':' + entry.key);
    }
    keys.sort();
    return keys;
}

} // namespace

/// The list of all settings: it is complete, no other setting is read, and the generated files
/// match it.
class TestSettingsList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void files_data();
    void files();
    void entries();
    void sectionsFromOutside();
    void everyDeclarationIsListed();
    void keysAreWrittenOnce();
    void onlyDeclaredSettingsAreRead();
    void entriesAreWhole();
    void filesThatNameThePort_data();
    void filesThatNameThePort();
};

void TestSettingsList::files_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("content");
    QTest::newRow("sample") << u"packaging/queue.ini.sample"_s << settings::sampleFile();
    QTest::newRow("page") << u"docs/settings.md"_s << settings::markdownPage();
}

void TestSettingsList::files()
{
    QFETCH(const QString, path);
    QFETCH(const QString, content);
    // Line by line, so that a difference is short enough to be read.
    const QStringList lines = read(path).split(u'\n');
    const QStringList expected = content.split(u'\n');
    for (qsizetype i = 0; i < qMin(lines.size(), expected.size()); ++i)
        QCOMPARE(lines[i], expected[i]);
    QCOMPARE(lines.size(), expected.size());
}

void TestSettingsList::entries()
{
    const settings::Section *queue = settings::findSection(u"queue"_s);
    QVERIFY(queue);
    QVERIFY(queue->scope == settings::Scope::Service);
    QCOMPARE(settings::keys(*queue), (QStringList{u"timeout"_s, u"port"_s}));
    const settings::Entry *timeout = settings::findEntry(*queue, u"timeout"_s);
    QVERIFY(timeout);
    QVERIFY(timeout->kind == settings::Kind::Number);
    QVERIFY(timeout->unit == settings::Unit::Seconds);
    QCOMPARE(timeout->defaultText, u"20"_s);
    QCOMPARE(timeout->smallest, 1);
    QVERIFY(!settings::findEntry(*queue, u"port"_s)->smallest);
    QVERIFY(!settings::findEntry(*queue, u"seconds"_s));
    QVERIFY(!settings::findSection(u"Queue"_s));

    const settings::Section *mindbox = settings::findSection(u"Mindbox"_s);
    QVERIFY(mindbox);
    QVERIFY(mindbox->scope == settings::Scope::Types);
    QCOMPARE(settings::findEntry(*mindbox, u"useIdempotencyKey"_s)->defaultText, u"false"_s);
    QVERIFY(settings::findEntry(*mindbox, u"useIdempotencyKey"_s)->kind == settings::Kind::Boolean);
    QCOMPARE(settings::findEntry(*mindbox, u"returnOperation"_s)->defaultText, u"Offline.Return"_s);
}

void TestSettingsList::sectionsFromOutside()
{
    QStringList open;
    for (const settings::Section &section : settings::sections()) {
        QCOMPARE(section.entries.isEmpty(), section.pattern.has_value());
        if (section.pattern)
            open.append(section.name);
    }
    QCOMPARE(open, (QStringList{u"ApMindbox.Redirect"_s, u"processing"_s}));
}

void TestSettingsList::everyDeclarationIsListed()
{
    QStringList declared;
    const QMap<QString, QString> files = sources();
    for (auto file = files.begin(); file != files.end(); ++file) {
        if (isDeclaring(file.key()))
            declared += keysIn(file.value());
    }
    declared.sort();
    QCOMPARE(declared, listedKeys());

    static const QRegularExpression pattern(uR"re(\.section = u"([^"]+)")re"_s);
    const QStringList sections = settings::sectionNames();
    for (const QString &text : files) {
        auto matches = pattern.globalMatch(text);
        while (matches.hasNext()) {
            const QString section = matches.next().captured(1);
            QVERIFY2(sections.contains(section), qPrintable(section));
        }
    }
}

void TestSettingsList::keysAreWrittenOnce()
{
    QStringList repeated;
    const QStringList listed = listedKeys();
    const QMap<QString, QString> files = sources();
    for (auto file = files.begin(); file != files.end(); ++file) {
        if (isDeclaring(file.key()))
            continue;
        for (const QString &key : keysIn(file.value())) {
            if (listed.contains(key))
                repeated.append(file.key() + u": "_s + key);
        }
    }
    QVERIFY2(repeated.isEmpty(), qPrintable(repeated.join(u'\n')));
}

void TestSettingsList::onlyDeclaredSettingsAreRead()
{
    static const QRegularExpression getter(uR"(\bget(String|Int|Bool|StringList)\s*\()"_s);
    // The class that reads settings for all others, and the declarations.
    const QStringList readers{u"shared/core/config.cpp"_s, u"shared/core/config.h"_s,
                              u"shared/core/setting.cpp"_s};
    QStringList others;
    const QMap<QString, QString> files = sources();
    for (auto file = files.begin(); file != files.end(); ++file) {
        const bool isReading = file.value().contains(getter);
        if (readers.contains(file.key()))
            QVERIFY2(isReading, qPrintable(file.key()));
        else if (isReading)
            others.append(file.key());
    }
    QVERIFY2(others.isEmpty(), qPrintable(others.join(u'\n')));
}

void TestSettingsList::entriesAreWhole()
{
    const auto check = [](const QString &name, const QString &about) {
        QVERIFY2(about.endsWith(u'.') && about.at(0).isUpper() == about.at(0).isLetter(),
                 qPrintable(name + u": "_s + about));
    };
    for (const settings::Section &section : settings::sections()) {
        if (section.pattern)
            check(section.name, section.pattern->about.toString());
        for (const settings::Entry &entry : section.entries)
            check(section.name + u':' + entry.key, entry.about);
    }
}

/// Files that cannot read the default port from the program.
void TestSettingsList::filesThatNameThePort_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("run") << u"\ndefault_port=%1\n"_s;
    QTest::newRow("packaging/queue.nft") << u"\ndefine queue_port = %1\n"_s;
    QTest::newRow("packaging/queue.8") << u"port %1 unless"_s;
    QTest::newRow("docs/operations.md") << u"http://127.0.0.1:%1/status"_s;
    QTest::newRow("docs/operations.ru.md") << u"http://127.0.0.1:%1/status"_s;
    QTest::newRow("docs/integration.md") << u"http://127.0.0.1:%1/start/"_s;
    QTest::newRow("docs/integration.ru.md") << u"http://127.0.0.1:%1/start/"_s;
}

void TestSettingsList::filesThatNameThePort()
{
    QFETCH(const QString, line);
    const settings::Section *queue = settings::findSection(u"queue"_s);
    const QString port = settings::findEntry(*queue, u"port"_s)->defaultText;
    QVERIFY(read(QString::fromLatin1(QTest::currentDataTag())).contains(line.arg(port)));
}

QTEST_GUILESS_MAIN(TestSettingsList)
#include "tst_settingslist.moc"
