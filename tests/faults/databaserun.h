#pragma once

#include "rig/serviceprocess.h"
#include "tests/faults/traffic.h"
#include "tests/support/queuedatabase.h"

#include <QTest>

#include <chrono>
#include <functional>

namespace faults {

using namespace Qt::StringLiterals;

inline const QByteArray failedStatement = u"Ошибка при выполнении запроса: "_s.toUtf8();
inline const QByteArray lostDatabase = u"База данных недоступна"_s.toUtf8();
/// The service does not catch the exception of a worker, or of a start, that gets no connection.
inline const QByteArray endWithoutConnection =
    u"Аварийное завершение работы: Не удалось "_s.toUtf8();
inline const QByteArray pollLine = u"Запуск обработчиков"_s.toUtf8();

/// The service with its traffic, its supervisor and the counts that are printed at the end.
class Run
{
public:
    explicit Run(const QString &databaseSettings)
        : service(QStringLiteral(QUEUE_PROGRAM), database.till(), {},
                  rig::ServiceProcess::Log::File)
    {
        database.setSettings(database.till().queueSettings() + databaseSettings);
        database.query(u"DELETE FROM message"_s);
        database.query(u"DELETE FROM documentcard"_s);
        database.query(u"INSERT INTO documentcard (id, operationinfo) VALUES (1, '')"_s);
        traffic.setRefusing(false);
    }

    void write(int count)
    {
        database.query(u"BEGIN"_s);
        for (const int end = written + count; written < end; ++written)
            database.query(u"INSERT INTO message (type, body) VALUES (?, ?)"_s,
                           {Traffic::typeOf(written), traffic.body(written)});
        database.query(u"COMMIT"_s);
    }

    void start()
    {
        traffic.beginLife();
        service.start();
    }

    /// Waits like the service manager: a service that has ended is started again.
    bool wait(const std::function<bool()> &condition,
              std::chrono::seconds limit = std::chrono::seconds(90))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            traffic.waitFor([](const auto &) { return false; }, std::chrono::milliseconds(20));
            if (service.isRunning())
                continue;
            ++ends;
            if (service.end() != u"exit 1")
                strangeEnds.append(service.end());
            traffic.waitFor([](const auto &) { return false; }, std::chrono::milliseconds(100));
            start();
        }
        return true;
    }

    bool waitForRequests(int more)
    {
        const int wanted = traffic.counts().requests + more;
        return wait([&] { return traffic.counts().requests >= wanted; });
    }

    /// Waits until a request waits for traffic.release(), after the answers that holdAfter()
    /// allows.
    bool waitUntilHeld(int before = 0)
    {
        return wait([&] { return traffic.counts().held > before; });
    }

    bool waitForPolls(int more)
    {
        const qsizetype wanted = service.output().count(pollLine) + more;
        return wait([&] { return service.output().count(pollLine) >= wanted; });
    }

    bool drain()
    {
        return wait([&] { return traffic.counts().messages == written; })
               && wait([&] { return database.ids().isEmpty(); });
    }

    /// The errors that the stores of all threads have logged.
    QByteArrayList storeErrors() const
    {
        QByteArrayList result;
        const QByteArrayList lines = service.output().split('\n');
        for (const QByteArray &line : lines) {
            if (line.contains(" [dao] ") && (line.contains(" WARN ") || line.contains(" ERROR ")))
                result.append(line);
        }
        return result;
    }

    /// The errors of the main thread's store, as the control interface counts them.
    int errorsCount() const { return service.ask(u"/db_errors_count"_s)[u"errorsCount"].toInt(-1); }

    /// What must be true after everything is delivered.
    void finish(const char *what)
    {
        QVERIFY2(drain(),
                 qPrintable(u"%1 of %2 messages are done, %3 in the table\n"_s.arg(
                                QString::number(traffic.counts().messages),
                                QString::number(written), QString::number(database.ids().size()))
                            + QString::fromUtf8(service.output().right(3000))));
        QVERIFY(service.isRunning());
        QVERIFY(service.stop());
        const QByteArray log = service.output();
        const Traffic::Counts counts = traffic.counts();
        const qsizetype failures = log.count(failedStatement);
        qInfo("%s: %d messages, %d received, %d repeats, %d failed statements, %d ends "
              "of the service",
              what, written, counts.messages, counts.repeats, static_cast<int>(failures), ends);
        QCOMPARE(strangeEnds, QStringList());
        QCOMPARE(log.count(endWithoutConnection), ends);
        // A deletion that failed, or a delivery that the end of the service interrupted.
        const auto workers = Traffic::types().size();
        QVERIFY(counts.repeats <= failures + (ends + kills) * workers);
    }

    QueueDatabase database;
    Traffic traffic;
    rig::ServiceProcess service;
    int written = 0;
    int ends = 0;
    /// By the test.
    int kills = 0;
    QStringList strangeEnds;
};

} // namespace faults
