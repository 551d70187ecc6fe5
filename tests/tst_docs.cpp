#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QString read(const QString &path)
{
    QFile file(QStringLiteral(QUEUE_SOURCE_DIR) + u'/' + path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    return QString::fromUtf8(file.readAll());
}

/// Texts that are not warnings: lines of lower levels, answers of the control interface, and parts
/// of other texts.
const QSet<QString> ordinaryTexts{
    // Start, poll and end.
    u"Запуск обработчика очередей сообщений"_s,
    u"Период обработки сообщений: %1 сек."_s,
    u"Запуск обработчиков"_s,
    u"Запуск обработчика типа '%1'"_s,
    u"Статус очереди сообщений:"_s,
    u"  %1: %2 сообщ. (обработчик %3активен)"_s,
    u"не "_s,
    u"В очереди нет сообщений"_s,
    u"Запись стартовых идентификаторов в файл"_s,
    u" стартовый идентификатор для %1: %2"_s,
    u"причина неизвестна"_s,
    u"Стартовые идентификаторы заняты обработчиками, запись при следующем опросе"_s,
    // Roles of services that share a server, and the service manager's line.
    u"Обслуживает очередь"_s,
    u"В резерве, очередь обслуживает другая служба"_s,
    u"Нет блокировки очереди на сервере базы данных, доставка не идёт"_s,
    u"Завершается, ждёт доставки: %1"_s,
    u"Служба больше не обслуживает очередь, обработчик завершается"_s,
    u"Служба выходит из резерва и принимает очередь '%1'"_s,
    u"Блокировка очереди '%1' возвращена, доставка продолжается"_s,
    u"сервер освободил её"_s,
    u"соединение %1, %2"_s,
    // Control interface.
    u"Получен запрос"_s,
    u"Проверка наличия сообщений типа '%1' для карты '%2'"_s,
    u"Принудительный запуск обработчика сообщений типа '%1' для карты '%2'"_s,
    u"Не удалось запустить обработчик"_s,
    u"Обработчик уже запущен"_s,
    u"Обработчик успешно запущен"_s,
    u"Неподдерживаемая команда"_s,
    u"Ошибка подключения к БД"_s,
    u"Ответ без запроса не отправлен"_s,
    // Worker and store.
    u"Обработчик %1 запущен"_s,
    u"Обработка сообщений"_s,
    u"Обработка сообщений завершена"_s,
    u"Обработка сообщения: %1"_s,
    u"Удаление сообщения %1"_s,
    // What the service has done.
    u"Итоги с %1: %2"_s,
    u"сообщений не было"_s,
    u"доставлено %1, снято с доставки %2, неудачных попыток %3"_s,
    u"Сообщение %1 (%2) снято с доставки%3: %4"_s,
    u", код ответа %1"_s,
    u"Каталогов настроек нет: %1"_s,
    u"Получение сообщения типа %1%2"_s,
    u" с идентификатором > %1"_s,
    u"Подключение к базе данных"_s,
    u"Удаление сообщения с идентификатором '%1'"_s,
    u"Удаление соединения с базой данных: %1"_s,
    u"Сообщения удаляются по одному: %1"_s,
    u"В базе данных '%1' созданы таблицы %2"_s,
    u"Журнал доставки '%1' снова записывается"_s,
    // Why the journal is not written.
    u"это не обычный файл"_s,
    u"файл создан более новой версией службы"_s,
    // Why a log was not put aside.
    u"файл уже открыт другой программой"_s,
    // The end of a line about a statement.
    u", код ошибки "_s,
    u", запрос: "_s,
    // The end of a line about settings.
    u"не является целым числом"_s,
    u"не является логическим значением"_s,
    u"действуют прежние значения"_s,
    u"строка пропущена"_s,
    // Reasons for a state or a code that a reply lacks.
    u"не указано"_s,
    // Reasons for a refusal.
    u"сервис отказал"_s,
    u"сервис отказал: %1"_s,
    u"сервис отказал, повтор не предусмотрен"_s,
};

/// The files whose warnings are not those of a single message type.
QStringList commonSources()
{
    QStringList files;
    for (const QString &folder : {u"app"_s, u"engine"_s, u"shared/core"_s, u"handlers/common"_s}) {
        const QStringList names =
            QDir(QStringLiteral(QUEUE_SOURCE_DIR) + u'/' + folder).entryList({u"*.cpp"_s});
        for (const QString &name : names)
            files.append(folder + u'/' + name);
    }
    return files + QStringList{u"shared/net/httpserver.cpp"_s};
}

/// The parts of a page that must be the same in both languages: numbers of headings and tables, and
/// what is typed.
struct Outline
{
    QList<int> headingLevels;
    QList<int> tableRows;          ///< rows of each table, head and rule included
    QList<QStringList> codeBlocks; ///< lines of each block, the first of them its language
    QStringList inlineCommands;    ///< sorted, each once, without what the reader puts in
};

/// A line of code without its comment and without names in angle brackets, which are translated.
QString typed(const QString &line)
{
    static const QRegularExpression translated(u"(^|\\s+)[#;]\\s.*$|(?<=<)[^<>]+(?=>)"_s);
    return QString(line).remove(translated).simplified();
}

bool isRussian(const QString &text)
{
    static const QRegularExpression letter(u"[А-Яа-яЁё]"_s);
    return text.contains(letter);
}

const QString programs =
    u"(?:queuectl|queue-stand|\\./run|systemctl|journalctl|apt|usermod|sqlite3|mariadb|curl|install)"_s;

bool isCommand(const QString &line)
{
    static const QRegularExpression command(u'^' + programs + u"\\s"_s);
    return line.contains(command);
}

Outline outline(const QString &path)
{
    static const QRegularExpression heading(u"^(#+) "_s);
    // The program and its first argument: the rest may be a placeholder, which is translated.
    static const QRegularExpression command(u"`("_s + programs + u"(?:\\s+[-a-z]+)?)"_s);
    Outline result;
    QString prose;
    bool inBlock = false;
    int rows = 0;
    const QStringList lines = read(path).split(u'\n');
    for (const QString &line : lines) {
        const QString text = line.trimmed();
        const bool isRow = !inBlock && text.startsWith(u'|');
        if (!isRow && rows > 0)
            result.tableRows.append(rows);
        rows = isRow ? rows + 1 : 0;
        if (text.startsWith(u"```")) {
            inBlock = !inBlock;
            if (inBlock)
                result.codeBlocks.append({text});
            continue;
        }
        if (inBlock) {
            result.codeBlocks.last().append(text);
            continue;
        }
        if (const auto match = heading.match(line); match.hasMatch())
            result.headingLevels.append(int(match.capturedLength(1)));
        prose += text + u' ';
    }
    auto commands = command.globalMatch(prose);
    while (commands.hasNext())
        result.inlineCommands.append(commands.next().captured(1).simplified());
    result.inlineCommands.removeDuplicates();
    result.inlineCommands.sort();
    return result;
}

/// The anchors of a page's headings, as GitHub makes them.
QStringList anchors(const QString &path)
{
    static const QRegularExpression heading(u"^#+ (.*)$"_s, QRegularExpression::MultilineOption);
    static const QRegularExpression dropped(u"[^\\w\\- ]"_s,
                                            QRegularExpression::UseUnicodePropertiesOption);
    QStringList result;
    auto headings = heading.globalMatch(read(path));
    while (headings.hasNext())
        result.append(headings.next().captured(1).toLower().remove(dropped).replace(u' ', u'-'));
    return result;
}

} // namespace

/// The pages for people: their links work, every warning is explained, and both languages of a page
/// match.
class TestDocs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyWarningIsExplained_data();
    void everyWarningIsExplained();
    void linksLeadToFiles();
    void pagesAgreeInBothLanguages_data();
    void pagesAgreeInBothLanguages();
    void readmeIsShort();
    void logExamplesWriteWhereTheUnitMayWrite_data();
    void logExamplesWriteWhereTheUnitMayWrite();
};

void TestDocs::everyWarningIsExplained_data()
{
    QTest::addColumn<QString>("page");
    QTest::newRow("English") << u"docs/operations.md"_s;
    QTest::newRow("Russian") << u"docs/operations.ru.md"_s;
}

void TestDocs::everyWarningIsExplained()
{
    QFETCH(const QString, page);
    const QString text = read(page);
    static const QRegularExpression literal(u"u\"([^\"]*[А-Яа-я][^\"]*)\""_s);

    QStringList missing;
    int explained = 0;
    const QStringList files = commonSources();
    for (const QString &file : files) {
        auto matches = literal.globalMatch(read(file));
        while (matches.hasNext()) {
            const QString warning = matches.next().captured(1);
            if (ordinaryTexts.contains(warning))
                continue;
            if (text.contains(u'`' + warning + u'`'))
                ++explained;
            else
                missing.append(file + u": "_s + warning);
        }
    }
    QVERIFY2(missing.isEmpty(), qPrintable(missing.join(u"\n"_s)));
    QVERIFY(explained > 20);
}

void TestDocs::linksLeadToFiles()
{
    static const QRegularExpression link(u"\\]\\(([^)#:]+)(#[^)]*)?\\)"_s);
    const QDir root(QStringLiteral(QUEUE_SOURCE_DIR));
    QStringList pages{u"README.md"_s, u"CONTRIBUTING.md"_s, u"CHANGELOG.md"_s, u"SECURITY.md"_s};
    QDirIterator docs(root.filePath(u"docs"_s), {u"*.md"_s}, QDir::Files,
                      QDirIterator::Subdirectories);
    while (docs.hasNext())
        pages.append(root.relativeFilePath(docs.next()));

    QStringList broken;
    int count = 0;
    for (const QString &page : std::as_const(pages)) {
        const QDir folder = QFileInfo(root.filePath(page)).dir();
        auto links = link.globalMatch(read(page));
        while (links.hasNext()) {
            const auto match = links.next();
            const QString target = match.captured(1);
            const QString heading = match.captured(2).mid(1);
            ++count;
            if (!folder.exists(target))
                broken.append(page + u" -> "_s + target);
            else if (!heading.isEmpty()
                     && !anchors(root.relativeFilePath(folder.filePath(target))).contains(heading))
                broken.append(page + u" -> "_s + target + u'#' + heading);
        }
    }
    QVERIFY2(broken.isEmpty(), qPrintable(broken.join(u"\n"_s)));
    QVERIFY(count > 10);
}

void TestDocs::pagesAgreeInBothLanguages_data()
{
    QTest::addColumn<QString>("page");
    QTest::newRow("operations") << u"docs/operations"_s;
    QTest::newRow("integration") << u"docs/integration"_s;
}

/// Comments, placeholders and printed texts are translated; typed text is not.
void TestDocs::pagesAgreeInBothLanguages()
{
    QFETCH(const QString, page);
    const Outline english = outline(page + u".md"_s);
    const Outline russian = outline(page + u".ru.md"_s);
    QVERIFY(english.headingLevels.size() > 5);
    QVERIFY(english.codeBlocks.size() > 5);
    QCOMPARE(russian.headingLevels, english.headingLevels);
    QCOMPARE(russian.tableRows, english.tableRows);
    QCOMPARE(russian.inlineCommands, english.inlineCommands);

    QCOMPARE(russian.codeBlocks.size(), english.codeBlocks.size());
    for (qsizetype block = 0; block < english.codeBlocks.size(); ++block) {
        const QStringList &lines = english.codeBlocks.at(block);
        const QStringList &translated = russian.codeBlocks.at(block);
        QVERIFY2(translated.size() == lines.size(), qPrintable(lines.join(u'\n')));
        for (qsizetype line = 0; line < lines.size(); ++line) {
            const QString wanted = typed(lines.at(line));
            const QString found = typed(translated.at(line));
            // A line that is not a command is output, and may be Russian on the Russian page.
            if (isCommand(wanted) || !isRussian(found))
                QCOMPARE(found, wanted);
        }
    }
}

/// Tables and details have pages of their own.
void TestDocs::readmeIsShort()
{
    QVERIFY(read(u"README.md"_s).count(u'\n') <= 120);
}

void TestDocs::logExamplesWriteWhereTheUnitMayWrite_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("page") << u"docs/log.md"_s;
    QTest::newRow("sample") << u"packaging/log4qt.properties.sample"_s;
}

/// Everything except ReadWritePaths is read-only for the unit, and a file needs a folder that the
/// service can write to.
void TestDocs::logExamplesWriteWhereTheUnitMayWrite()
{
    QFETCH(const QString, path);
    static const QRegularExpression writable(u"^ReadWritePaths=-(\\S+)$"_s,
                                             QRegularExpression::MultilineOption);
    static const QRegularExpression logFile(u"^#?log4j\\.appender\\.\\w+\\.file=(.*)/[^/]+$"_s,
                                            QRegularExpression::MultilineOption);
    const QString mayWrite = writable.match(read(u"packaging/queue.service.in"_s)).captured(1);
    QVERIFY(!mayWrite.isEmpty());
    const QString folders = read(u"packaging/queue.tmpfiles"_s);

    int count = 0;
    auto files = logFile.globalMatch(read(path));
    while (files.hasNext()) {
        const QString folder = files.next().captured(1);
        QVERIFY2(folder.startsWith(mayWrite + u'/'), qPrintable(folder));
        QVERIFY2(folders.contains(u"\nd "_s + folder + u' '), qPrintable(folder));
        ++count;
    }
    QVERIFY(count > 0);
}

QTEST_APPLESS_MAIN(TestDocs)
#include "tst_docs.moc"
