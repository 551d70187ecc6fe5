#include "rig/loopbackserver.h"
#include "rig/serviceprocess.h"
#include "tests/support/queuedatabase.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;

namespace {

constexpr int limitMs = 60'000;

/// The service manager's end of the socket.
class Manager
{
public:
    explicit Manager(const QString &path)
        : path(path)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const QByteArray name = QFile::encodeName(path);
        if (name.size() >= qsizetype(sizeof address.sun_path))
            qFatal("%s is too long for a socket", name.constData());
        std::copy(name.cbegin(), name.cend(), address.sun_path);
        line = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (::bind(line, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            qFatal("%s: %s", name.constData(), strerror(errno));
    }
    ~Manager() { ::close(line); }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

    /// All messages so far, in their order.
    const QByteArrayList &words()
    {
        char buffer[512];
        for (ssize_t size = 0; (size = ::recv(line, buffer, sizeof buffer, 0)) > 0;)
            words_.append(QByteArray(buffer, size));
        return words_;
    }
    bool waitFor(const QByteArray &start, qsizetype times = 1)
    {
        return QTest::qWaitFor([&] { return count(start) >= times; }, limitMs);
    }
    qsizetype count(const QByteArray &start)
    {
        return std::ranges::count_if(
            words(), [&start](const QByteArray &word) { return word.startsWith(start); });
    }

    const QString path;

private:
    int line = -1;
    QByteArrayList words_;
};

const QByteArray extension = "EXTEND_TIMEOUT_USEC=10000000";
const QByteArray cutLine = u"Повторный сигнал завершения работы, доставка прервана: "_s.toUtf8();

} // namespace

/// What the service tells the service manager at the end, and what a second signal does, tested
/// with the real program.
class TestStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void deliveryInTimeIsWaitedFor();
    void pauseOfAPollIsWaitedFor();
    void idleServiceAsksForNothing();
    void secondSignalEndsAtOnce_data();
    void secondSignalEndsAtOnce();

private:
    void start();
    int put(const QString &type, QJsonObject body);

    std::unique_ptr<QueueDatabase> database;
    std::unique_ptr<LoopbackServer> peer;
    std::unique_ptr<Manager> manager;
    std::unique_ptr<rig::ServiceProcess> service;
};

void TestStop::init()
{
    database = std::make_unique<QueueDatabase>();
    peer = std::make_unique<LoopbackServer>();
    manager = std::make_unique<Manager>(database->root() + u"/notify"_s);
    service = std::make_unique<rig::ServiceProcess>(
        QStringLiteral(QUEUE_PROGRAM), database->till(),
        QMap<QString, QString>{{u"NOTIFY_SOCKET"_s, manager->path}},
        rig::ServiceProcess::Log::File);
}

void TestStop::cleanup()
{
    if (QTest::currentTestFailed())
        qInfo("%s\n%s", service->output().right(3000).constData(),
              manager->words().join('\n').constData());
    service.reset();
    manager.reset();
    peer.reset();
    database.reset();
}

void TestStop::start()
{
    database->setSettings(database->till().queueSettings());
    service->start();
    if (!manager->waitFor("READY=1"))
        qFatal("the service does not start: %s", service->output().constData());
}

int TestStop::put(const QString &type, QJsonObject body)
{
    body.insert(u"url"_s, peer->url(u"/"_s).toString());
    return database->put(type,
                         QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact)));
}

void TestStop::deliveryInTimeIsWaitedFor()
{
    peer->play({LoopbackServer::answer(200).held()});
    const int id = put(u"softcheck"_s, {{u"body"_s, u"1"_s}, {u"timeout"_s, 600}});
    put(u"softcheck"_s, {{u"body"_s, u"2"_s}, {u"timeout"_s, 600}});
    start();
    QVERIFY(peer->waitForRequests(1));
    QCOMPARE(manager->count("EXTEND_TIMEOUT_USEC"), 0);
    service->signal(SIGTERM);
    // Also longer than the time limit for work that the end does not wait for.
    QVERIFY(manager->waitFor(extension, 8));
    QVERIFY(service->isRunning());
    QCOMPARE(manager->count("STATUS="), manager->count(extension));
    QVERIFY(manager->words().contains(
        u"STATUS=Завершается, ждёт доставки: softcheck %1"_s.arg(id).toUtf8()));
    QVERIFY(manager->words().indexOf("STOPPING=1") < manager->words().indexOf(extension));

    peer->release();
    QVERIFY(service->waitForEnd());
    QCOMPARE(service->end(), u"exit 0"_s);
    QVERIFY(!database->ids().contains(id));
    QCOMPARE(database->ids().size(), 1);
    QCOMPARE(service->output().count(cutLine), 0);
}

/// Its second request is also answered with "not done yet"; then it sleeps for a quarter of an
/// hour.
void TestStop::pauseOfAPollIsWaitedFor()
{
    const auto undone = LoopbackServer::answer(200, R"({"code":"1"})");
    peer->play({LoopbackServer::silence(), undone, undone});
    put(u"rsbsbp"_s, {{u"timeout"_s, 1},
                      {u"urlStatus"_s, peer->url(u"/status"_s).toString()},
                      {u"bodyStatus"_s, QJsonObject()},
                      {u"urlRefund"_s, peer->url(u"/refund"_s).toString()},
                      {u"bodyRefund"_s, QJsonObject()},
                      {u"duration"_s, 900'000},
                      {u"interval"_s, 900'000}});
    start();
    QVERIFY(peer->waitForRequests(3));
    service->signal(SIGTERM);
    QVERIFY(manager->waitFor(extension, 8));
    QCOMPARE(peer->requests().size(), 3);
    service->signal(SIGTERM);
    QVERIFY(service->waitForEnd());
}

void TestStop::idleServiceAsksForNothing()
{
    start();
    service->signal(SIGTERM);
    QVERIFY(service->waitForEnd());
    QCOMPARE(service->end(), u"exit 0"_s);
    QCOMPARE(manager->count("EXTEND_TIMEOUT_USEC"), 0);
    QCOMPARE(manager->count("STOPPING=1"), 1);
}

void TestStop::secondSignalEndsAtOnce_data()
{
    QTest::addColumn<int>("second");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void TestStop::secondSignalEndsAtOnce()
{
    QFETCH(int, second);
    peer->play({LoopbackServer::answer(200).held(), LoopbackServer::answer(200).held()});
    const int softcheck = put(u"softcheck"_s, {{u"body"_s, u"1"_s}, {u"timeout"_s, 600}});
    const int heineken = put(u"heineken"_s, {{u"body"_s, u"1"_s}, {u"timeout"_s, 600}});
    start();
    QVERIFY(peer->waitForRequests(2));
    service->signal(SIGTERM);
    QVERIFY(manager->waitFor(extension));
    service->signal(second);
    QVERIFY(service->waitForEnd());
    QCOMPARE(service->end(), u"exit 1"_s);
    QCOMPARE(service->output().count(" ERROR [queue] " + cutLine), 2);
    for (const auto &[type, id] : {std::pair(u"softcheck"_s, softcheck), {u"heineken"_s, heineken}})
        QVERIFY(service->output().contains(
            cutLine + u"тип '%1', сообщение %2\n"_s.arg(type, QString::number(id)).toUtf8()));
    QCOMPARE(database->ids(), (QList<int>{softcheck, heineken}));
}

QTEST_GUILESS_MAIN(TestStop)
#include "tst_stop.moc"
