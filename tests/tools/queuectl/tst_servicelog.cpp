#include "tools/queuectl/servicelog.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

/// The service's log, read back.
class TestServiceLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void takesLinesApart_data();
    void takesLinesApart();
    void longTextsStayTogether();
    void noFileConfigured();
    void consoleIsNoFile();
    void history();
    void deliveryEndsTheFailures();
    void rolledFileIsReadToo();
    void attemptByBody();
    void attemptById();
    void deliveredBodyIsNoAttempt();
    void causes_data();
    void causes();

private:
    void writeLog(const QStringList &lines, const QString &name = u"queue.log"_s);

    std::unique_ptr<QTemporaryDir> folder;
};

void TestServiceLog::init()
{
    folder = std::make_unique<QTemporaryDir>();
    qputenv("LOG4QT_CONFIGURATION", folder->filePath(u"log.properties"_s).toUtf8());
    qputenv("LOG_FOLDER", folder->path().toUtf8());
    QFile::remove(folder->filePath(u"log.properties"_s));
}

void TestServiceLog::writeLog(const QStringList &lines, const QString &name)
{
    QFile properties(folder->filePath(u"log.properties"_s));
    QVERIFY(properties.open(QIODevice::WriteOnly));
    properties.write("log4j.rootLogger=INFO, f\n"
                     "log4j.appender.f=org.apache.log4j.DailyRollingFileAppender\n"
                     "log4j.appender.f.file=${LOG_FOLDER}/queue.log\n"
                     "log4j.appender.f.layout=org.apache.log4j.PatternLayout\n"
                     "log4j.appender.f.layout.conversionPattern=%d{ISO8601} %-5p [%c] %m%n\n");
    QFile log(folder->filePath(name));
    QVERIFY(log.open(QIODevice::WriteOnly));
    log.write((lines.join(u'\n') + u'\n').toUtf8());
}

void TestServiceLog::takesLinesApart_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("line");
    QTest::newRow("the usual one") << u"%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n"_s
                                   << u"2026-01-31 12:00:00,123 WARN  [cardlab] [a] b"_s;
    QTest::newRow("iso") << u"%d{ISO8601} %p %c - %m%n"_s
                         << u"2026-01-31 12:00:00,123 WARN cardlab - [a] b"_s;
    QTest::newRow("thread and milliseconds the log4j way")
        << u"[%t] %d{dd.MM.yyyy HH:mm:ss.SSS} %5p (%c{1}): %m%n"_s
        << u"[queue-7] 31.01.2026 12:00:00.123  WARN (cardlab): [a] b"_s;
}

void TestServiceLog::takesLinesApart()
{
    QFETCH(const QString, pattern);
    QFETCH(const QString, line);
    const QList<LogLine> lines = ServiceLog::parse(line, pattern);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().time, QDateTime(QDate(2026, 1, 31), QTime(12, 0, 0, 123)));
    QCOMPARE(lines.first().level, u"WARN"_s);
    QCOMPARE(lines.first().category, u"cardlab"_s);
    QCOMPARE(lines.first().text, u"[a] b"_s);
}

void TestServiceLog::longTextsStayTogether()
{
    const QList<LogLine> lines = ServiceLog::parse(u"2026-01-31 12:00:00,123 WARN  [a] one\ntwo\n"
                                                   "2026-01-31 12:00:01,123 INFO  [a] three\n"_s,
                                                   QString());
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0].text, u"one\ntwo"_s);
    QCOMPARE(lines[1].text, u"three"_s);
}

void TestServiceLog::noFileConfigured()
{
    const ServiceLog log = ServiceLog::read();
    QVERIFY(!log.hasFile());
    QVERIFY(log.lines().isEmpty());
}

void TestServiceLog::consoleIsNoFile()
{
    QFile properties(folder->filePath(u"log.properties"_s));
    QVERIFY(properties.open(QIODevice::WriteOnly));
    properties.write("log4j.rootLogger=INFO, stdout\n"
                     "log4j.appender.stdout=org.apache.log4j.ConsoleAppender\n"
                     "log4j.appender.unused=org.apache.log4j.FileAppender\n"
                     "log4j.appender.unused.file=/nowhere\n");
    properties.close();
    QVERIFY(!ServiceLog::read().hasFile());
}

void TestServiceLog::history()
{
    writeLog({u"2026-01-31 12:00:00,000 INFO  [cardlab] Удаление сообщения 1"_s,
              u"2026-01-31 12:01:00,000 ERROR [cardlab] Ошибка при отправке сообщения: раз"_s,
              u"2026-01-31 12:02:00,000 ERROR [cardlab] Ошибка при отправке сообщения: два"_s,
              u"2026-01-31 12:02:01,000 WARN  [cardlab] Получен сигнал завершения работы"_s,
              u"2026-01-31 12:03:00,000 INFO  [queue]   cardlab: 3 сообщ. (обработчик активен)"_s,
              u"2026-01-31 12:03:00,000 INFO  [queue]   loya: 3 сообщ. (обработчик не активен)"_s});
    const ServiceLog log = ServiceLog::read();
    const TypeHistory history = log.history(u"cardlab"_s);
    QCOMPARE(history.lastDelivery.time(), QTime(12, 0));
    QVERIFY(history.lastFailure.has_value());
    QCOMPARE(history.lastFailure->text, u"Ошибка при отправке сообщения: два"_s);
    QCOMPARE(history.failingSince.time(), QTime(12, 1));
    QCOMPARE(history.isWorkerActive, std::optional<bool>(true));
    QCOMPARE(log.history(u"loya"_s).isWorkerActive, std::optional<bool>(false));
    QVERIFY(!log.history(u"megar"_s).isWorkerActive.has_value());
}

void TestServiceLog::deliveryEndsTheFailures()
{
    writeLog({u"2026-01-31 12:01:00,000 ERROR [cardlab] Ошибка при отправке сообщения: раз"_s,
              u"2026-01-31 12:02:00,000 INFO  [cardlab] Удаление сообщения 1"_s});
    const TypeHistory history = ServiceLog::read().history(u"cardlab"_s);
    QVERIFY(!history.failingSince.isValid());
    QVERIFY(history.lastFailure.has_value());
}

void TestServiceLog::rolledFileIsReadToo()
{
    writeLog({u"2026-01-30 12:01:00,000 ERROR [cardlab] вчера"_s}, u"queue.log.2026-01-30"_s);
    writeLog({u"2026-01-31 12:01:00,000 INFO  [queue] сегодня"_s});
    const QList<LogLine> lines = ServiceLog::read().lines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0].text, u"вчера"_s);
}

void TestServiceLog::attemptByBody()
{
    writeLog({u"2026-01-31 12:00:00,000 INFO  [cardlab] Обработка сообщения: {\"a\":1}"_s,
              u"2026-01-31 12:00:01,000 ERROR [cardlab] первая"_s,
              u"2026-01-31 12:00:02,000 INFO  [cardlab] Обработка сообщения: {\"a\":2}"_s,
              u"2026-01-31 12:00:03,000 ERROR [cardlab] вторая"_s});
    const ServiceLog log = ServiceLog::read();
    const auto attempt = log.lastAttempt(u"cardlab"_s, u"{\"a\":1}"_s, 7);
    QVERIFY(attempt.has_value());
    QCOMPARE(attempt->failures.size(), 1);
    QCOMPARE(attempt->failures.first().text, u"первая"_s);
    QVERIFY(!log.lastAttempt(u"cardlab"_s, u"{\"a\":3}"_s, 7).has_value());
    QVERIFY(!log.lastAttempt(u"loya"_s, u"{\"a\":1}"_s, 7).has_value());
}

void TestServiceLog::attemptById()
{
    writeLog({u"2026-01-31 12:00:00,000 INFO  [emarkings] Отправка сообщения 7"_s,
              u"2026-01-31 12:00:01,000 ERROR [emarkings] первая"_s,
              u"2026-01-31 12:00:02,000 INFO  [emarkings] Отправка сообщения 8"_s,
              u"2026-01-31 12:00:03,000 ERROR [emarkings] вторая"_s});
    const ServiceLog log = ServiceLog::read();
    const auto attempt = log.lastAttempt(u"emarkings"_s, u"{}"_s, 7);
    QVERIFY(attempt.has_value());
    QCOMPARE(attempt->failures.first().text, u"первая"_s);
    QCOMPARE(log.lastAttempt(u"emarkings"_s, u"{}"_s, 8)->failures.first().text, u"вторая"_s);
}

void TestServiceLog::deliveredBodyIsNoAttempt()
{
    writeLog({u"2026-01-31 12:00:00,000 INFO  [cardlab] Обработка сообщения: {\"a\":1}"_s,
              u"2026-01-31 12:00:02,000 INFO  [cardlab] Удаление сообщения 1"_s});
    QVERIFY(!ServiceLog::read().lastAttempt(u"cardlab"_s, u"{\"a\":1}"_s, 2).has_value());
}

void TestServiceLog::causes_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("cause");
    const auto http = [](int status) {
        return u"Ошибка при отправке сообщения: Сервер ответил ошибкой, код состояния HTTP %1"_s
            .arg(status);
    };
    QTest::newRow("401") << http(401) << u"credentials"_s;
    QTest::newRow("403") << http(403) << u"credentials"_s;
    QTest::newRow("404") << http(404) << u"request"_s;
    QTest::newRow("408") << http(408) << u"service"_s;
    QTest::newRow("429") << http(429) << u"service"_s;
    QTest::newRow("503") << http(503) << u"service"_s;
    QTest::newRow("refused") << u"Сервер a:1 отклонил соединение"_s << u"network"_s;
    QTest::newRow("closed") << u"Сервер a:1 закрыл соединение до конца ответа"_s << u"network"_s;
    QTest::newRow("no host") << u"Не найден адрес сервера a"_s << u"network"_s;
    QTest::newRow("timeout") << u"Сервер a не ответил за 5 сек."_s << u"network"_s;
    QTest::newRow("proxy") << u"Прокси-сервер не ответил вовремя"_s << u"network"_s;
    QTest::newRow("server certificate")
        << u"Сертификат сервера a не прошёл проверку (x)"_s << u"certificate"_s;
    QTest::newRow("tls") << u"Не удалось установить защищённое соединение с сервером a (x)"_s
                         << u"certificate"_s;
    QTest::newRow("conversion") << u"Ошибка генерации сертификата"_s << u"certificate"_s;
    QTest::newRow("no address") << u"Не указан адрес запроса"_s << u"request"_s;
    QTest::newRow("own words") << u"код ответа 17"_s << u"other"_s;
}

void TestServiceLog::causes()
{
    QFETCH(const QString, failure);
    QTEST(causeName(causeOf(failure)), "cause");
}

QTEST_GUILESS_MAIN(TestServiceLog)
#include "tst_servicelog.moc"
