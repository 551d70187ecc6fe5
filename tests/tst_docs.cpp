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

/// Texts that are no warning: lines below that level, answers of the control interface, and pieces of
/// other texts.
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
    // What a line on a statement ends with.
    u", код ошибки "_s,
    u", запрос: "_s,
    // What a line on settings ends with.
    u"не является целым числом"_s,
    u"не является логическим значением"_s,
    u"действуют прежние значения"_s,
    u"строка пропущена"_s,
    // What the reason of an outcome says for a state or a code that a reply lacks.
    u"не указано"_s,
    // What the reason of an outcome says for a refusal.
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

/// The pages for people: their links lead somewhere, and the engineer finds every warning explained.
class TestDocs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyWarningIsExplained_data();
    void everyWarningIsExplained();
    void linksLeadToFiles();
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

/// The unit's tree is read-only but for ReadWritePaths, and a file needs a folder of the service's.
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
