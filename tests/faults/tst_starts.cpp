#include "rig/fastpeer.h"
#include "rig/serviceprocess.h"
#include "tests/faults/form.h"
#include "tests/support/queuedatabase.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTest>

#include <charconv>
#include <map>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;
using rig::FastPeer;

namespace {

/// Accepts everything and counts how often each row arrived.
class Peer
{
public:
    Peer()
        : receiver([this](const FastPeer::Request &request) {
            int number = 0;
            std::from_chars(request.body.data(), request.body.data() + request.body.size(), number);
            const std::scoped_lock lock(mutex);
            ++arrivals_[number];
            return FastPeer::reply(200);
        })
    {
    }

    QString body(int number) const
    {
        const QJsonObject object{{u"url"_s, u"http://127.0.0.1:%1/"_s.arg(receiver.port())},
                                 {u"body"_s, QString::number(number)}};
        return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    }

    std::map<int, int> arrivals() const
    {
        const std::scoped_lock lock(mutex);
        return arrivals_;
    }

private:
    mutable std::mutex mutex;
    std::map<int, int> arrivals_;
    FastPeer receiver;
};

/// Forces starts over one connection, two in each packet, until it is stopped.
class Caller
{
public:
    explicit Caller(int port)
        : thread([this, port] { call(port); })
    {
    }
    ~Caller()
    {
        isEnding = true;
        thread.join();
    }
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    int answers() const { return answers_; }

private:
    void call(int port)
    {
        constexpr int limitMs = 30'000;
        const QByteArray request = "GET /start/cardlab/- HTTP/1.1\r\nHost: till\r\n\r\n";
        QTcpSocket socket;
        while (!isEnding) {
            if (socket.state() != QAbstractSocket::ConnectedState) {
                socket.abort();
                socket.connectToHost(u"127.0.0.1"_s, static_cast<quint16>(port));
                if (!socket.waitForConnected(limitMs))
                    return;
            }
            socket.write(request + request);
            QByteArray answer;
            while (answer.count("description") < 2 && socket.waitForReadyRead(limitMs))
                answer += socket.readAll();
            answers_ += static_cast<int>(answer.count("description"));
        }
    }

    std::atomic<bool> isEnding = false;
    std::atomic<int> answers_ = 0;
    std::thread thread;
};

} // namespace

/// Simultaneous polls and forced starts of the real service.
class TestStarts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void floodOfStarts();
};

void TestStarts::floodOfStarts()
{
    const int rows = faults::count(1000, 20'000);
    constexpr int callers = 8;
    QueueDatabase database;
    Peer peer;
    rig::ServiceProcess service(QStringLiteral(QUEUE_PROGRAM), database.till(), {},
                                rig::ServiceProcess::Log::File);
    database.setSettings(database.till().queueSettings());
    service.start();
    QVERIFY(QTest::qWaitFor([&] { return !service.ask(u"/status"_s).isEmpty(); }, 60'000));

    int answers = 0;
    {
        std::vector<std::unique_ptr<Caller>> flood;
        for (int caller = 0; caller < callers; ++caller)
            flood.push_back(std::make_unique<Caller>(service.controlPort()));
        // A few rows at a time, so that the worker ends and is started again all the time.
        for (int number = 0; number < rows; ++number) {
            database.put(u"cardlab"_s, peer.body(number));
            if (number % 20 == 19)
                QVERIFY(QTest::qWaitFor([&] { return database.ids().isEmpty(); }, 120'000));
        }
        for (const auto &caller : flood)
            answers += caller->answers();
    }
    QVERIFY(service.isRunning());
    QVERIFY(service.stop());

    const std::map<int, int> arrivals = peer.arrivals();
    QStringList repeated;
    for (const auto &[number, count] : arrivals) {
        if (count != 1)
            repeated.append(u"%1: %2 times"_s.arg(number).arg(count));
    }
    const qsizetype started = service.output().count(u"Обработчик cardlab запущен"_s.toUtf8());
    qInfo("%d rows, %d answers to forced starts, %d workers", rows, answers,
          static_cast<int>(started));
    QCOMPARE(arrivals.size(), static_cast<size_t>(rows));
    QVERIFY2(repeated.isEmpty(), qPrintable(repeated.join(u", "_s)));
    // The test means something only with many of both.
    QVERIFY(answers > rows / 10 && started > rows / 50);
}

QTEST_GUILESS_MAIN(TestStarts)
#include "tst_starts.moc"
