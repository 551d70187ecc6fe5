#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

/// Runs a program that logs, and looks at its standard output and its files.
class TestLogging : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void defaultLine();
    void defaultLevels();
    void russianInAnyLocale_data();
    void russianInAnyLocale();
    void lineOfAKilledProcessIsThere();
    void placeholderInAnArgumentStays();
    void propertyFiles_data();
    void propertyFiles();
    void brokenFiles_data();
    void brokenFiles();
    void unknownProperties_data();
    void unknownProperties();
    void environmentReplacesTheTillsFile();
    void filesAreAppendedTo_data();
    void filesAreAppendedTo();
    void rollingFilesKeepTheirNumber();
    void dailyFileOfAnEarlierDayIsPutAside_data();
    void dailyFileOfAnEarlierDayIsPutAside();
    void linesOfAMessageCannotPassForEvents();
    void textsFromOutsideAreEscaped_data();
    void textsFromOutsideAreEscaped();
    void eventHasALargestSize_data();
    void eventHasALargestSize();
    void threadsWriteWholeLines();
    void workersMayLogWhileTheProcessEnds();
    void fewThreadsBesideTheMainThread();

private:
    struct Run
    {
        QByteArray output;
        QByteArray errors;
        int exitCode = -1;
        bool isKilled = false;
    };

    Run run(const QStringList &arguments, const QString &locale = u"C.UTF-8"_s);
    void writeProperties(const QByteArray &text);
    void write(const QString &path, const QByteArray &text);
    QByteArray read(const QString &path) const;
    /// The times of the lines replaced by "T".
    static QByteArray withoutTimes(const QByteArray &text);

    std::unique_ptr<QTemporaryDir> folder;
    QString propertiesFile;
    QProcessEnvironment environment;
};

namespace {

const QByteArray defaultOutput = "T INFO  [cardlab] информация\n"
                                 "T WARN  [cardlab] предупреждение\n"
                                 "T ERROR [cardlab] ошибка\n"
                                 "T INFO  [iturup] чужая\n";

/// A console appender named "out" with this pattern, as the only appender of the root logger.
QByteArray console(const QByteArray &level, const QByteArray &pattern)
{
    return "log4j.rootLogger=" + level
           + ", out\n"
             "log4j.appender.out=org.apache.log4j.ConsoleAppender\n"
             "log4j.appender.out.layout=org.apache.log4j.PatternLayout\n"
             "log4j.appender.out.layout.conversionPattern="
           + pattern + "\n";
}

/// A file appender of this class named "file", with the pattern "%m%n" and further options.
QByteArray file(const QByteArray &className, const QByteArray &options)
{
    return "log4j.rootLogger=INFO, file\n"
           "log4j.appender.file="
           + className
           + "\n"
             "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
             "log4j.appender.file.layout.conversionPattern=%m%n\n"
           + options;
}

} // namespace

void TestLogging::init()
{
    folder = std::make_unique<QTemporaryDir>();
    propertiesFile = folder->path() + u"/tallocash/cash/queue/config/log4qt.properties"_s;
    environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"QUEUE_ROOT"_s, folder->path());
    environment.remove(u"LOG4QT_CONFIGURATION"_s);
}

TestLogging::Run TestLogging::run(const QStringList &arguments, const QString &locale)
{
    environment.insert(u"LC_ALL"_s, locale);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(folder->path());
    process.start(QStringLiteral(LOGPROBE), arguments);
    if (!process.waitForFinished(60'000))
        qFatal("logprobe: %s", qPrintable(process.errorString()));
    return {process.readAllStandardOutput(), process.readAllStandardError(), process.exitCode(),
            process.exitStatus() == QProcess::CrashExit};
}

void TestLogging::write(const QString &path, const QByteArray &text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

void TestLogging::writeProperties(const QByteArray &text)
{
    write(propertiesFile, QByteArray(text).replace("@", folder->path().toUtf8()));
}

QByteArray TestLogging::read(const QString &path) const
{
    QFile file(folder->filePath(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

QByteArray TestLogging::withoutTimes(const QByteArray &text)
{
    static const QRegularExpression time(u"^\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}[,.]\\d{3}"_s,
                                         QRegularExpression::MultilineOption);
    return QString::fromUtf8(text).replace(time, u"T"_s).toUtf8();
}

void TestLogging::defaultLine()
{
    const QDateTime before = QDateTime::currentDateTime();
    const Run probe = run({u"say"_s, u"Отправка сообщения"_s});
    const QDateTime after = QDateTime::currentDateTime();

    const QString line = QString::fromUtf8(probe.output);
    QCOMPARE(line.mid(23), u" INFO  [cardlab] Отправка сообщения\n"_s);
    const QDateTime time = QDateTime::fromString(line.left(23), u"yyyy-MM-dd HH:mm:ss,zzz"_s);
    QVERIFY2(time >= before && time <= after, qPrintable(line));
    QCOMPARE(probe.errors, QByteArray());
}

void TestLogging::defaultLevels()
{
    const Run probe = run({u"levels"_s});
    QCOMPARE(withoutTimes(probe.output), defaultOutput);
    QCOMPARE(probe.errors, QByteArray());
}

void TestLogging::russianInAnyLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::newRow("plain C") << u"C"_s;
    QTest::newRow("UTF-8") << u"C.UTF-8"_s;
    QTest::newRow("not installed") << u"ru_RU.KOI8-R"_s;
}

void TestLogging::russianInAnyLocale()
{
    QFETCH(QString, locale);
    QCOMPARE(withoutTimes(run({u"levels"_s}, locale).output), defaultOutput);
    writeProperties(file("org.apache.log4j.FileAppender", "log4j.appender.file.file=@/журнал.log"));
    QCOMPARE(run({u"levels"_s}, locale).errors, QByteArray());
    QCOMPARE(read(u"журнал.log"_s), "информация\nпредупреждение\nошибка\nчужая\n");
}

void TestLogging::lineOfAKilledProcessIsThere()
{
    const Run probe = run({u"killed"_s, u"последняя"_s});
    QVERIFY(probe.isKilled);
    QCOMPARE(withoutTimes(probe.output), "T INFO  [cardlab] последняя\n");
}

void TestLogging::placeholderInAnArgumentStays()
{
    QCOMPARE(withoutTimes(run({u"fill"_s, u"скидка %1, %2, 100%"_s}).output),
             "T INFO  [cardlab] начало скидка %1, %2, 100% конец\n");
}

void TestLogging::propertyFiles_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("content");

    const auto toConsole = [](const char *name, const QByteArray &properties,
                              const QByteArray &output) {
        QTest::newRow(name) << properties << output << QString() << QByteArray();
    };
    const auto toFile = [](const char *name, const QByteArray &properties, const QString &path,
                           const QByteArray &content) {
        QTest::newRow(name) << properties << QByteArray() << path << content;
    };

    toConsole("level error", console("ERROR", "%p %m%n"), "ERROR ошибка\n");
    toConsole("level in small letters", console("error", "%p %m%n"), "ERROR ошибка\n");
    toConsole("level trace", console("TRACE", "%p%n"), "TRACE\nDEBUG\nINFO\nWARN\nERROR\nINFO\n");
    toConsole("level all", console("ALL", "%p%n"), "TRACE\nDEBUG\nINFO\nWARN\nERROR\nINFO\n");
    toConsole("level off", console("OFF", "%m%n"), "");
    toConsole("threshold of all loggers", console("ALL", "%p%n") + "log4j.threshold=ERROR\n",
              "ERROR\n");
    toConsole("threshold of an appender",
              console("ALL", "%p%n") + "log4j.appender.out.threshold=WARN\n", "WARN\nERROR\n");
    toConsole("level of one category",
              console("WARN", "%c %p%n") + "log4j.logger.cardlab=ERROR\nlog4j.logger.iturup=INFO\n",
              "cardlab ERROR\niturup INFO\n");
    toConsole("category as an old file has it",
              console("WARN", "%c %p%n") + "log4j.category.iturup=INFO\n",
              "cardlab WARN\ncardlab ERROR\niturup INFO\n");
    toConsole("inherited level", console("ERROR", "%p%n") + "log4j.logger.cardlab=INHERITED\n",
              "ERROR\n");
    toConsole("appender of one category too",
              console("ERROR", "%m%n") + "log4j.logger.cardlab=, out\n", "ошибка\nошибка\n");
    toConsole("appender of one category only",
              console("ERROR", "%m%n")
                  + "log4j.logger.cardlab=, out\nlog4j.additivity.cardlab=false\n",
              "ошибка\n");
    toConsole("additivity without a logger",
              console("INFO", "%m%n") + "log4j.additivity.cardlab=false\n", "чужая\n");
    toConsole("widths", console("ERROR", "[%-7p][%7p][%.3p]%n"), "[ERROR  ][  ERROR][ROR]\n");
    toConsole("ISO 8601", console("ERROR", "%d{ISO8601} %m%n"), "T ошибка\n");
    toConsole("date without a format", console("ERROR", "%d %m%n"), "T ошибка\n");
    toConsole("date with Qt's letters", console("ERROR", "%d{yyyy-MM-dd HH:mm:ss,zzz} %m%n"),
              "T ошибка\n");
    toConsole("date with Java's letters", console("ERROR", "%d{yyyy-MM-dd HH:mm:ss.SSS} %m%n"),
              "T ошибка\n");
    toConsole("literals in a date", console("ERROR", "%d{'d''M'} %m%n"), "d'M ошибка\n");
    toConsole("per cent sign", console("ERROR", "100%% %m%n"), "100% ошибка\n");
    toConsole("no place in the source", console("ERROR", "%F%L%M%l%C%m%n"), "ошибка\n");
    toConsole("empty contexts", console("ERROR", "<%x> %m%n"), "<> ошибка\n");
    toConsole("simple layout",
              "log4j.rootLogger=ERROR, out\nlog4j.appender.out=Log4Qt::ConsoleAppender\n"
              "log4j.appender.out.layout=Log4Qt::SimpleLayout\n",
              "ERROR - ошибка\n");
    toConsole("TTCC layout",
              "log4j.rootLogger=ERROR, out\nlog4j.appender.out=org.apache.log4j.ConsoleAppender\n"
              "log4j.appender.out.layout=org.apache.log4j.TTCCLayout\n"
              "log4j.appender.out.layout.dateFormat=ISO8601\n"
              "log4j.appender.out.layout.threadPrinting=false\n"
              "log4j.appender.out.layout.contextPrinting=false\n",
              "T ERROR cardlab - ошибка\n");
    toConsole(
        "appender that writes nothing",
        "log4j.rootLogger=ALL, none\nlog4j.appender.none=org.apache.log4j.varia.NullAppender\n",
        "");
    toConsole(
        "blanks, comments, joined lines, colons",
        "\xEF\xBB\xBF# comment\r\n! comment\r\n  log4j.rootLogger : ERROR , \\\r\n   out\r\n\r\n"
        "log4j.appender.out   org.apache.log4j.ConsoleAppender\r\n"
        "log4j.appender.out.layout=org.apache.log4j.PatternLayout\r\n"
        "log4j.appender.out.layout.ConversionPattern=\\u005b%p\\u005d\\t%m%n\r\n",
        "[ERROR]\tошибка\n");
    toConsole("reference to another property", "level=ERROR\n" + console("${level}", "%p %m%n"),
              "ERROR ошибка\n");
    toConsole("reference to itself ends", console("ERROR", "${loop}%m%n") + "loop=${loop}\n",
              "${loop}ошибка\n");
    toConsole("what Log4Qt knows besides",
              console("ERROR", "%m%n")
                  + "log4j.reset=true\nlog4j.Debug=INFO\nlog4j.handleQtMessages=true\n"
                    "log4j.watchThisFile=true\n",
              "ошибка\n");

    toFile("file", file("org.apache.log4j.FileAppender", "log4j.appender.file.file=@/a.log\n"),
           u"a.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("file with a capital",
           file("Log4Qt::FileAppender", "log4j.appender.file.File=@/a.log\n"), u"a.log"_s,
           "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("relative file in folders that are not there",
           file("org.apache.log4j.FileAppender", "log4j.appender.file.file=logs/of/queue.log\n"),
           u"logs/of/queue.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("folder from the environment",
           file("org.apache.log4j.FileAppender", "log4j.appender.file.file=${QUEUE_ROOT}/a.log\n"),
           u"a.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("not flushed until the end",
           file("org.apache.log4j.FileAppender",
                "log4j.appender.file.file=@/a.log\nlog4j.appender.file.immediateFlush=false\n"),
           u"a.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("rolling file",
           file("org.apache.log4j.RollingFileAppender", "log4j.appender.file.file=@/a.log\n"),
           u"a.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
    toFile("daily file",
           file("Log4Qt::DailyRollingFileAppender", "log4j.appender.file.file=@/a.log\n"),
           u"a.log"_s, "информация\nпредупреждение\nошибка\nчужая\n");
}

void TestLogging::propertyFiles()
{
    QFETCH(QByteArray, properties);
    QFETCH(QByteArray, output);
    QFETCH(QString, path);
    QFETCH(QByteArray, content);

    writeProperties(properties);
    const Run probe = run({u"levels"_s});
    QCOMPARE(withoutTimes(probe.output), output);
    QCOMPARE(probe.errors, QByteArray());
    if (!path.isEmpty())
        QCOMPARE(read(path), content);
}

void TestLogging::brokenFiles_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QByteArray>("reason");
    const QByteArray good = console("ERROR", "%m%n");

    QTest::newRow("empty") << QByteArray() << QByteArray("нет свойства log4j.rootLogger");
    QTest::newRow("no properties")
        << QByteArray("<xml/>\n") << QByteArray("нет свойства log4j.rootLogger");
    QTest::newRow("level") << console("LOUD", "%m%n")
                           << QByteArray("log4j.rootLogger: неизвестный уровень 'LOUD'");
    QTest::newRow("inherited at the root")
        << console("INHERITED", "%m%n")
        << QByteArray("log4j.rootLogger: неизвестный уровень 'INHERITED'");
    QTest::newRow("level of a category")
        << good + "log4j.logger.dao=LOUD\n"
        << QByteArray("log4j.logger.dao: неизвестный уровень 'LOUD'");
    QTest::newRow("appender missing") << QByteArray("log4j.rootLogger=INFO, out\n")
                                      << QByteArray("нет свойства log4j.appender.out");
    QTest::newRow("appender of an unknown class")
        << QByteArray("log4j.rootLogger=INFO, out\nlog4j.appender.out=org.example.Pigeon\n"
                      "log4j.appender.out.layout=org.apache.log4j.SimpleLayout\n")
        << QByteArray("log4j.appender.out: неизвестный класс 'org.example.Pigeon'");
    QTest::newRow("layout missing")
        << QByteArray("log4j.rootLogger=INFO, out\nlog4j.appender.out=Log4Qt::ConsoleAppender\n")
        << QByteArray("нет свойства log4j.appender.out.layout");
    QTest::newRow("layout of an unknown class")
        << QByteArray("log4j.rootLogger=INFO, out\nlog4j.appender.out=Log4Qt::ConsoleAppender\n"
                      "log4j.appender.out.layout=Pretty\n")
        << QByteArray("log4j.appender.out.layout: неизвестный класс 'Pretty'");
    QTest::newRow("target") << good + "log4j.appender.out.target=PRINTER\n"
                            << QByteArray(
                                   "log4j.appender.out.target: неизвестное значение 'PRINTER'");
    QTest::newRow("threshold") << good + "log4j.appender.out.threshold=LOUD\n"
                               << QByteArray(
                                      "log4j.appender.out.threshold: неизвестный уровень 'LOUD'");
    QTest::newRow("file without a name")
        << file("Log4Qt::FileAppender", "") << QByteArray("нет свойства log4j.appender.file.file");
    QTest::newRow("file that is a folder")
        << file("Log4Qt::FileAppender", "log4j.appender.file.file=@\n")
        << QByteArray("log4j.appender.file.file: не удалось открыть файл '@'");
    QTest::newRow("folder that is a file")
        << file("Log4Qt::FileAppender",
                "log4j.appender.file.file=@/tallocash/cash/queue/config/log4qt.properties/a.log\n")
        << QByteArray("log4j.appender.file.file: не удалось создать каталог");
    QTest::newRow("size") << file("Log4Qt::RollingFileAppender",
                                  "log4j.appender.file.file=@/a.log\n"
                                  "log4j.appender.file.maxFileSize=big\n")
                          << QByteArray(
                                 "log4j.appender.file.maxFileSize: неизвестный размер 'big'");
    QTest::newRow("number of files")
        << file("Log4Qt::RollingFileAppender", "log4j.appender.file.file=@/a.log\n"
                                               "log4j.appender.file.maxBackupIndex=many\n")
        << QByteArray("log4j.appender.file.maxBackupIndex: неизвестное число 'many'");
    QTest::newRow("date pattern")
        << file("Log4Qt::DailyRollingFileAppender", "log4j.appender.file.file=@/a.log\n"
                                                    "log4j.appender.file.datePattern='.old'\n")
        << QByteArray("log4j.appender.file.datePattern: неизвестный образец ''.old''");
}

void TestLogging::brokenFiles()
{
    QFETCH(QByteArray, properties);
    QFETCH(QByteArray, reason);

    writeProperties(properties);
    const Run probe = run({u"levels"_s});
    QCOMPARE(probe.errors, QByteArray());
    QByteArrayList lines = withoutTimes(probe.output).split('\n');
    const QByteArray warning = lines.takeFirst();
    const QByteArray opening = "T WARN  [queue] Файл настроек журнала '" + propertiesFile.toUtf8()
                               + "' не принят, журнал идёт в стандартный вывод: ";
    QVERIFY2(warning.startsWith(opening), warning.constData());
    reason.replace("@", folder->path().toUtf8());
    QVERIFY2(warning.mid(opening.size()).startsWith(reason), warning.constData());
    QCOMPARE(lines.join('\n'), defaultOutput);
}

void TestLogging::unknownProperties_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QByteArray>("warning");
    QTest::newRow("key") << QByteArray("log4j.rootlogger=INFO\n")
                         << QByteArray("неизвестное свойство log4j.rootlogger");
    QTest::newRow("option") << QByteArray("log4j.appender.out.colour=red\n")
                            << QByteArray("неизвестное свойство log4j.appender.out.colour");
    QTest::newRow("option of the layout")
        << QByteArray("log4j.appender.out.layout.font=Arial\n")
        << QByteArray("неизвестное свойство log4j.appender.out.layout.font");
    QTest::newRow("encoding")
        << QByteArray("log4j.appender.out.encoding=KOI8-R\n")
        << QByteArray("log4j.appender.out.encoding: журнал пишется в UTF-8, а не в 'KOI8-R'");
}

void TestLogging::unknownProperties()
{
    QFETCH(QByteArray, properties);
    QFETCH(QByteArray, warning);
    writeProperties(console("WARN", "%p [%c] %m%n") + properties);
    QCOMPARE(run({u"say"_s, u"тихо"_s}).output, "WARN [Log4Qt] Файл настроек журнала '"
                                                    + propertiesFile.toUtf8() + "': " + warning
                                                    + '\n');
}

void TestLogging::environmentReplacesTheTillsFile()
{
    writeProperties(console("INFO", "till %m%n"));
    write(folder->filePath(u"own.properties"_s), console("INFO", "own %m%n"));
    QCOMPARE(run({u"say"_s, u"да"_s}).output, "till да\n");
    environment.insert(u"LOG4QT_CONFIGURATION"_s, folder->filePath(u"own.properties"_s));
    QCOMPARE(run({u"say"_s, u"да"_s}).output, "own да\n");
    environment.insert(u"LOG4QT_CONFIGURATION"_s, folder->filePath(u"missing.properties"_s));
    const QByteArray output = withoutTimes(run({u"say"_s, u"да"_s}).output);
    QVERIFY2(output.startsWith("T WARN  [queue] Файл настроек журнала '"
                               + folder->filePath(u"missing.properties"_s).toUtf8()
                               + "' не принят"),
             output.constData());
    QVERIFY2(output.endsWith("\nT INFO  [cardlab] да\n"), output.constData());
}

void TestLogging::filesAreAppendedTo_data()
{
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<QByteArray>("option");
    QTest::addColumn<QByteArray>("content");
    for (const char *name : {"FileAppender", "RollingFileAppender", "DailyRollingFileAppender"}) {
        const QByteArray className = QByteArray("org.apache.log4j.") + name;
        QTest::addRow("%s, nothing said", name)
            << className << QByteArray() << QByteArray("1\n2\n");
        QTest::addRow("%s, appended", name)
            << className << QByteArray("log4j.appender.file.appendFile=true\n")
            << QByteArray("1\n2\n");
        QTest::addRow("%s, emptied", name)
            << className << QByteArray("log4j.appender.file.append=false\n") << QByteArray("2\n");
    }
}

void TestLogging::filesAreAppendedTo()
{
    QFETCH(QByteArray, className);
    QFETCH(QByteArray, option);
    QFETCH(QByteArray, content);
    writeProperties(file(className, "log4j.appender.file.file=@/a.log\n" + option));
    QCOMPARE(run({u"say"_s, u"1"_s}).exitCode, 0);
    QCOMPARE(run({u"say"_s, u"2"_s}).exitCode, 0);
    QCOMPARE(read(u"a.log"_s), content);
}

void TestLogging::rollingFilesKeepTheirNumber()
{
    writeProperties(file("org.apache.log4j.RollingFileAppender",
                         "log4j.appender.file.file=@/log/a.log\n"
                         "log4j.appender.file.maxFileSize=300KB\n"
                         "log4j.appender.file.maxBackupIndex=2\n"));
    QCOMPARE(run({u"repeat"_s, u"2000"_s}).errors, QByteArray());

    const QDir logs(folder->filePath(u"log"_s));
    QCOMPARE(logs.entryList(QDir::Files, QDir::Name),
             (QStringList{u"a.log"_s, u"a.log.1"_s, u"a.log.2"_s}));
    for (const char *name : {"log/a.log.1", "log/a.log.2"}) {
        const qsizetype size = read(QString::fromLatin1(name)).size();
        QVERIFY2(size >= 300 * 1024 && size < 302 * 1024, qPrintable(QString::number(size)));
    }
    // The newest lines are there, without a gap between the files.
    const QByteArray all = read(u"log/a.log.2"_s) + read(u"log/a.log.1"_s) + read(u"log/a.log"_s);
    const QByteArrayList lines = all.split('\n');
    for (qsizetype at = 0; at < lines.size() - 1; ++at)
        QCOMPARE(lines[at].right(4).replace(".", "").toInt(), 2000 - lines.size() + 1 + at);
}

void TestLogging::dailyFileOfAnEarlierDayIsPutAside_data()
{
    QTest::addColumn<QByteArray>("option");
    QTest::addColumn<int>("daysAgo");
    QTest::addColumn<QString>("format");
    QTest::newRow("nothing said") << QByteArray() << 1 << u"'a.log.'yyyy-MM-dd"_s;
    QTest::newRow("by day") << QByteArray("log4j.appender.file.datePattern='.'yyyyMMdd\n") << 3
                            << u"'a.log.'yyyyMMdd"_s;
    QTest::newRow("by month") << QByteArray("log4j.appender.file.datePattern='.'yyyy-MM\n") << 40
                              << u"'a.log.'yyyy-MM"_s;
    QTest::newRow("today's goes on") << QByteArray() << 0 << QString();
}

void TestLogging::dailyFileOfAnEarlierDayIsPutAside()
{
    QFETCH(QByteArray, option);
    QFETCH(int, daysAgo);
    QFETCH(QString, format);

    const QDateTime then = QDateTime::currentDateTime().addDays(-daysAgo);
    write(folder->filePath(u"log/a.log"_s), "прежде\n");
    QFile former(folder->filePath(u"log/a.log"_s));
    QVERIFY(former.open(QIODevice::ReadWrite));
    QVERIFY(former.setFileTime(then, QFileDevice::FileModificationTime));
    former.close();

    writeProperties(file("org.apache.log4j.DailyRollingFileAppender",
                         "log4j.appender.file.file=@/log/a.log\n" + option));
    QCOMPARE(run({u"say"_s, u"теперь"_s}).errors, QByteArray());
    if (format.isEmpty()) {
        QCOMPARE(read(u"log/a.log"_s), "прежде\nтеперь\n");
    } else {
        QCOMPARE(read(u"log/"_s + then.toString(format)), "прежде\n");
        QCOMPARE(read(u"log/a.log"_s), "теперь\n");
    }
}

void TestLogging::linesOfAMessageCannotPassForEvents()
{
    QCOMPARE(withoutTimes(
                 run({u"say"_s, u"ответ:\n2026-01-31 12:00:00,123 INFO  [queue] ложь"_s}).output),
             "T INFO  [cardlab] ответ:\n    2026-01-31 12:00:00,123 INFO  [queue] ложь\n");
}

void TestLogging::textsFromOutsideAreEscaped_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QString>("path");
    QTest::newRow("default") << QByteArray() << QString();
    QTest::newRow("console") << console("INFO", "T INFO  [%c] %m%n") << QString();
    QTest::newRow("pattern of the library") << console("INFO", "T INFO  [%c{1}] %m%n") << QString();
    for (const char *name : {"FileAppender", "RollingFileAppender", "DailyRollingFileAppender"})
        QTest::newRow(name) << file(QByteArray("org.apache.log4j.") + name,
                                    "log4j.appender.file.file=@/a.log\n"
                                    "log4j.appender.file.layout.conversionPattern="
                                    "T INFO  [%c] %m%n\n")
                            << u"a.log"_s;
}

void TestLogging::textsFromOutsideAreEscaped()
{
    QFETCH(const QByteArray, properties);
    QFETCH(const QString, path);
    if (!properties.isEmpty())
        writeProperties(properties);
    const Run probe =
        run({u"fill"_s, u"\u001b[2Jчек\r\u009b\u202eтекст\\x1b\nC:\\a \"\\u041f\""_s});
    QCOMPARE(QString::fromUtf8(withoutTimes(path.isEmpty() ? probe.output : read(path))),
             u"T INFO  [cardlab] начало \\x1b[2Jчек\\x0d\\x9b\\u202eтекст\\\\x1b\n"
             "    C:\\a \"\\u041f\" конец\n"_s);
}

void TestLogging::eventHasALargestSize_data()
{
    QTest::addColumn<QByteArray>("pattern");
    QTest::newRow("filled in here") << QByteArray("%d{ISO8601} %-5p [%t] [%c] %m%n");
    QTest::newRow("left to the library") << QByteArray("%d{ISO8601} %-5p [%t] [%c{2}] %m%n");
}

void TestLogging::eventHasALargestSize()
{
    QFETCH(const QByteArray, pattern);
    writeProperties(console("INFO", pattern));
    const QString text = u"ж"_s.repeated(50'000);
    const QByteArray output = run({u"say"_s, text}).output;
    QVERIFY2(output.size() <= 64 * 1024, qPrintable(QString::number(output.size())));
    const QString line = QString::fromUtf8(output);
    const qsizetype shown = line.count(u'ж');
    QVERIFY2(shown > 30'000, qPrintable(line.right(100)));
    QVERIFY2(line.endsWith(u"ж… (пропущено байт: %1)\n"_s.arg(2 * (50'000 - shown))),
             qPrintable(line.right(100)));
}

void TestLogging::threadsWriteWholeLines()
{
    constexpr int lineCount = 2000;
    const Run probe = run({u"threads"_s, QString::number(lineCount)});
    static const QRegularExpression line(
        u"^T INFO  \\[cardlab\\] поток ([0-3]) строка (\\d+) конец$"_s);
    std::array<int, 4> next{};
    const QStringList lines =
        QString::fromUtf8(withoutTimes(probe.output)).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 4 * lineCount);
    for (const QString &text : lines) {
        const QRegularExpressionMatch match = line.match(text);
        QVERIFY2(match.hasMatch(), qPrintable(text));
        const auto thread = match.captured(1).toUInt();
        QCOMPARE(match.captured(2).toInt(), next.at(thread)++);
    }
}

void TestLogging::workersMayLogWhileTheProcessEnds()
{
    for (int round = 0; round < 20; ++round) {
        const Run probe = run({u"beyond"_s});
        QVERIFY(!probe.isKilled);
        QCOMPARE(probe.exitCode, 0);
        QCOMPARE(probe.errors, QByteArray());
        QVERIFY(probe.output.count("[cardlab] работа\n") >= 4);
    }
}

void TestLogging::fewThreadsBesideTheMainThread()
{
    // log4cplus keeps one thread at least, and a sanitizer may have one of its own. The program
    // ends when no more are left.
    QCOMPARE(run({u"idle"_s, u"3"_s}).exitCode, 0);
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
