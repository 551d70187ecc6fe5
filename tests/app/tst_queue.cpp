#include "app/queue.h"
#include "rig/portreservation.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThreadPool>

using namespace Qt::StringLiterals;

class TestQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsInOrder();
    void period_data();
    void period();
    void timerIsArmedAfterThePoll();
    void stopSetsTheFlagAndLogs();
    void commands_data();
    void commands();
    void methodIsIgnored();
    void answerIsJson();
    void statusOfTheTable();
    void lostDatabase();
    void deletedDatabaseComesBack();
    void eachPieceOfWorkIsTold();
    void errorsAreCountedAndReset();
    void messagesOfACard();
    void startOfAType();
    void linesOfACommand();
    void takenPort();
    void portOutOfRange();
    void operationsKeepTheirPlaces();

private:
    void start(const QString &settings = QString());
    QByteArray curl(const QStringList &arguments);
    QString ask(const QString &path);

    std::unique_ptr<QueueDatabase> database;
    std::unique_ptr<Queue> queue;
    std::unique_ptr<rig::PortReservation> reservation;
    quint16 port = 0;
};

void TestQueue::init()
{
    database = std::make_unique<QueueDatabase>();
    reservation = std::make_unique<rig::PortReservation>();
    reservation->lend();
    port = reservation->port();
}

void TestQueue::cleanup()
{
    queue.reset();
    QThreadPool::globalInstance()->waitForDone();
    database.reset();
}

void TestQueue::start(const QString &settings)
{
    database->setSettings(u"[queue]\nport = %1\n"_s.arg(port) + settings);
    queue = std::make_unique<Queue>();
    queue->start();
}

QByteArray TestQueue::curl(const QStringList &arguments)
{
    QProcess client;
    client.start(u"curl"_s, QStringList{u"--silent"_s, u"--show-error"_s} + arguments);
    const bool hasEnded =
        QTest::qWaitFor([&client] { return client.state() == QProcess::NotRunning; }, 20'000);
    if (!hasEnded)
        client.kill();
    return client.readAllStandardOutput() + client.readAllStandardError();
}

QString TestQueue::ask(const QString &path)
{
    return QString::fromUtf8(curl({u"http://127.0.0.1:%1%2"_s.arg(QString::number(port), path)}));
}

void TestQueue::startsInOrder()
{
    database->put(u"nosuch"_s, u"{}"_s);
    const LogCapture log(u"queue"_s);
    start();
    QCOMPARE(log.lines(),
             (QStringList{u"INFO Запуск обработчика очередей сообщений"_s,
                          u"INFO Период обработки сообщений: 20 сек."_s,
                          u"INFO Запуск обработчиков"_s, u"INFO Статус очереди сообщений:"_s,
                          u"INFO   nosuch: 1 сообщ. (обработчик не активен)"_s,
                          u"TRACE Запись стартовых идентификаторов в файл"_s}));
}

void TestQueue::period_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<int>("seconds");
    QTest::newRow("not set") << u""_s << 20;
    QTest::newRow("0") << u"timeout = 0\n"_s << 1;
    QTest::newRow("1") << u"timeout = 1\n"_s << 1;
    QTest::newRow("-5") << u"timeout = -5\n"_s << 1;
    QTest::newRow("2") << u"timeout = 2\n"_s << 2;
    QTest::newRow("not a number") << u"timeout = soon\n"_s << 20;
    QTest::newRow("longer than the timer counts") << u"timeout = 2147483647\n"_s << 2147483;
}

void TestQueue::period()
{
    QFETCH(QString, setting);
    QFETCH(int, seconds);
    const LogCapture log(u"queue"_s);
    start(setting);
    QVERIFY(log.lines().contains(u"INFO Период обработки сообщений: %1 сек."_s.arg(seconds)));
    const auto *timer = queue->findChild<QTimer *>();
    QVERIFY(timer);
    QCOMPARE(timer->interval(), seconds * 1000);
    QVERIFY(timer->isSingleShot());
    QVERIFY(timer->isActive());
}

void TestQueue::timerIsArmedAfterThePoll()
{
    start();
    auto *timer = queue->findChild<QTimer *>();
    timer->stop();
    const LogCapture log(u"queue"_s);
    QVERIFY(QMetaObject::invokeMethod(queue.get(), "runHandlers"));
    QCOMPARE(log.lines().first(), u"INFO Запуск обработчиков"_s);
    QVERIFY(timer->isActive());
}

void TestQueue::stopSetsTheFlagAndLogs()
{
    start();
    database->put(u"heineken"_s, uR"({"url":"http://127.0.0.1:1/"})"_s);
    const LogCapture log(QString{});
    queue->stop();
    QVERIFY(QMetaObject::invokeMethod(queue.get(), "runHandlers"));
    QThreadPool::globalInstance()->waitForDone();
    const QStringList lines = log.lines();
    QCOMPARE(lines.first(), u"WARN Получен сигнал завершения работы"_s);
    // The poll still starts a worker, which reads nothing.
    QVERIFY(lines.contains(u"INFO Обработчик heineken запущен"_s));
    QVERIFY(lines.filter(u"Обработка сообщения"_s).isEmpty());
    QCOMPARE(lines.count(u"WARN Получен сигнал завершения работы"_s), 2);
}

void TestQueue::commands_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("answer");

    const QString unsupported = uR"({"description":"Неподдерживаемая команда"})"_s;
    const QString refused = uR"({"description":"Некорректные параметры запроса"})"_s;
    const QString refusedButTrue =
        uR"({"description":"Некорректные параметры запроса","result":true})"_s;
    const QString notStarted = uR"({"description":"Не удалось запустить обработчик"})"_s;
    const QString none = uR"({"result":false})"_s;
    const QString empty = uR"({"firstMessageDateTime":"","messagesCount":0})"_s;

    QTest::newRow("no part") << u"/"_s << unsupported;
    QTest::newRow("no path") << u""_s << unsupported;
    QTest::newRow("unknown") << u"/stop/mindbox/1"_s << unsupported;
    QTest::newRow("other case") << u"/Status"_s << unsupported;
    QTest::newRow("status") << u"/status"_s << empty;
    QTest::newRow("status with more") << u"/status/x/y/z"_s << empty;
    QTest::newRow("status with slashes") << u"//status//"_s << empty;
    QTest::newRow("status with a query") << u"/status?x=/1"_s << empty;
    QTest::newRow("messages") << u"/messages/mindbox/123"_s << none;
    QTest::newRow("messages with slashes") << u"/messages//mindbox///123/"_s << none;
    QTest::newRow("messages of two parts") << u"/messages/mindbox"_s << refusedButTrue;
    QTest::newRow("messages of four parts") << u"/messages/mindbox/123/extra"_s << refusedButTrue;
    QTest::newRow("messages alone") << u"/messages"_s << refusedButTrue;
    QTest::newRow("start of two parts") << u"/start/mindbox"_s << refused;
    QTest::newRow("start of four parts") << u"/start/mindbox/1/2"_s << refused;
    QTest::newRow("start of an unknown type") << u"/start/nosuchtype/123"_s << notStarted;
    QTest::newRow("errors") << u"/db_errors_count"_s << uR"({"errorsCount":0})"_s;
    QTest::newRow("errors with more") << u"/db_errors_count/x"_s << uR"({"errorsCount":0})"_s;
    QTest::newRow("reset") << u"/db_reset_errors"_s << u"{}"_s;
}

void TestQueue::commands()
{
    QFETCH(QString, path);
    QFETCH(QString, answer);
    start();
    QCOMPARE(ask(path), answer);
}

void TestQueue::methodIsIgnored()
{
    start();
    const QString address = u"http://127.0.0.1:%1/db_errors_count"_s.arg(port);
    for (const QString &verb : {u"POST"_s, u"PUT"_s, u"DELETE"_s, u"OPTIONS"_s})
        QCOMPARE(curl({u"--request"_s, verb, u"--data"_s, u"/status"_s, address}),
                 QByteArray(R"({"errorsCount":0})"));
}

void TestQueue::answerIsJson()
{
    start();
    const QByteArray answer = curl({u"--include"_s, u"http://127.0.0.1:%1/nosuch"_s.arg(port)});
    QVERIFY2(answer.startsWith("HTTP/1.1 200 OK\r\n"), answer.constData());
    QVERIFY(answer.toLower().contains("content-type: application/json\r\n"));
    const QByteArray body = R"({"description":"Неподдерживаемая команда"})";
    QVERIFY(answer.toLower().contains("content-length: " + QByteArray::number(body.size())));
    QVERIFY(answer.endsWith("\r\n\r\n" + body));
}

void TestQueue::statusOfTheTable()
{
    start();
    const int first = database->put(u"nosuch"_s, u"{}"_s);
    database->put(u"nosuch"_s, u"{}"_s);
    database->query(
        u"UPDATE message SET creationtime = '2026-02-03 04:05:06' WHERE messageid = ?"_s, {first});
    QCOMPARE(ask(u"/status"_s),
             uR"({"firstMessageDateTime":"Tue Feb 3 04:05:06 2026","messagesCount":2})"_s);
}

void TestQueue::lostDatabase()
{
    start();
    database->query(u"ALTER TABLE message RENAME TO away"_s);
    const QString lost = uR"({"description":"Ошибка подключения к БД"})"_s;
    QCOMPARE(ask(u"/status"_s), lost);
    QCOMPARE(ask(u"/messages/mindbox/1"_s), uR"({"result":false})"_s);
    database->query(u"ALTER TABLE away RENAME TO message"_s);
    database->put(u"mindbox"_s, u"{}"_s, u"1"_s);
    QCOMPARE(ask(u"/messages/mindbox/1"_s), uR"({"result":true})"_s);
}

void TestQueue::deletedDatabaseComesBack()
{
    start();
    database->put(u"nosuch"_s, u"{}"_s);
    for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::remove(database->file() + suffix));
    const QString lost = uR"({"description":"Ошибка подключения к БД"})"_s;
    QCOMPARE(ask(u"/status"_s), lost);
    QVERIFY(QMetaObject::invokeMethod(queue.get(), "runHandlers"));
    QCOMPARE(ask(u"/db_errors_count"_s), uR"({"errorsCount":3})"_s);

    // The next poll connects again, to the restored file.
    QVERIFY(QMetaObject::invokeMethod(queue.get(), "runHandlers"));
    database->put(u"nosuch"_s, u"{}"_s);
    const QString found = ask(u"/status"_s);
    QVERIFY2(found.endsWith(u"\"messagesCount\":1}"), qPrintable(found));
    QCOMPARE(ask(u"/db_errors_count"_s), uR"({"errorsCount":3})"_s);
}

void TestQueue::eachPieceOfWorkIsTold()
{
    start(u"timeout = 1\n"_s);
    int served = 0;
    queue->setServedHandler([&served] { ++served; });
    for (int command = 0; command < 3; ++command)
        ask(u"/status"_s);
    QVERIFY(served >= 3);
    served = 0;
    // A poll.
    QVERIFY(QTest::qWaitFor([&served] { return served > 0; }, 30'000));
}

void TestQueue::errorsAreCountedAndReset()
{
    start();
    database->query(u"ALTER TABLE message RENAME TO away"_s);
    ask(u"/status"_s);
    QCOMPARE(ask(u"/db_errors_count"_s), uR"({"errorsCount":1})"_s);
    ask(u"/messages/mindbox/1"_s);
    QCOMPARE(ask(u"/db_errors_count"_s), uR"({"errorsCount":3})"_s);
    QCOMPARE(ask(u"/db_reset_errors"_s), u"{}"_s);
    QCOMPARE(ask(u"/db_errors_count"_s), uR"({"errorsCount":0})"_s);
}

void TestQueue::messagesOfACard()
{
    start();
    database->put(u"nosuch"_s, u"{}"_s, u"карта"_s);
    QCOMPARE(ask(u"/messages/nosuch/%D0%BA%D0%B0%D1%80%D1%82%D0%B0"_s), uR"({"result":true})"_s);
    QCOMPARE(ask(u"/messages/nosuch/other"_s), uR"({"result":false})"_s);
}

void TestQueue::startOfAType()
{
    start();
    QCOMPARE(ask(u"/start/heineken/123"_s), uR"({"description":"Обработчик успешно запущен"})"_s);
    QThreadPool::globalInstance()->waitForDone();

    // A service that accepts the connection and sends nothing keeps the worker busy.
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    database->put(u"heineken"_s, uR"({"url":"http://127.0.0.1:%1/"})"_s.arg(silent.serverPort()));
    ask(u"/start/heineken/123"_s);
    QTRY_VERIFY(silent.hasPendingConnections());
    QCOMPARE(ask(u"/start/heineken/123"_s), uR"({"description":"Обработчик уже запущен"})"_s);
    silent.nextPendingConnection()->close();
}

void TestQueue::linesOfACommand()
{
    start();
    const LogCapture log(u"queue"_s);
    ask(u"/messages/mindbox/%251"_s);
    ask(u"/start/nosuch/7"_s);
    ask(u"/start/x"_s);
    QCOMPARE(log.lines(),
             (QStringList{
                 u"INFO Получен запрос"_s,
                 u"INFO Проверка наличия сообщений типа 'mindbox' для карты '%1'"_s,
                 u"INFO Получен запрос"_s,
                 u"INFO Принудительный запуск обработчика сообщений типа 'nosuch' для карты '7'"_s,
                 u"INFO Получен запрос"_s, u"WARN Некорректные параметры запроса"_s}));
}

void TestQueue::takenPort()
{
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::LocalHost, port));
    const LogCapture log(u"queue"_s);
    start();
    const QStringList errors = log.lines().filter(u"ERROR"_s);
    QCOMPARE(errors.size(), 1);
    const QString opening = u"ERROR Не удалось занять порт управления %1 ("_s.arg(port);
    QVERIFY2(errors.first().startsWith(opening), qPrintable(errors.first()));
    QVERIFY2(errors.first().contains(u"queue:port"), qPrintable(errors.first()));
    QVERIFY(queue->findChild<QTimer *>()->isActive());
}

void TestQueue::portOutOfRange()
{
    const LogCapture log(u"queue"_s);
    start(u"port = 65536\n"_s);
    QCOMPARE(log.lines().filter(u"ERROR"_s),
             QStringList{u"ERROR Порт управления 65536 вне пределов 1-65535, исправьте параметр "
                         "queue:port"_s});
    QVERIFY(queue->findChild<QTimer *>()->isActive());
}

void TestQueue::operationsKeepTheirPlaces()
{
    constexpr int ofQObject = 12;
    QCOMPARE(slotOf(&Queue::messages), ofQObject);
    QCOMPARE(slotOf(static_cast<QJsonObject (Queue::*)(const QStringList &)>(&Queue::start)),
             ofQObject + 1);
    QCOMPARE(slotOf(&Queue::status), ofQObject + 2);
    const QMetaObject &meta = Queue::staticMetaObject;
    QCOMPARE(meta.method(meta.methodOffset()).name(), QByteArray("dataReceived"));
    QCOMPARE(meta.method(meta.methodOffset() + 1).name(), QByteArray("runHandlers"));
}

QTEST_GUILESS_MAIN(TestQueue)
#include "tst_queue.moc"
