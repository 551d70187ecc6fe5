#include "rig/loopbackserver.h"

#include "rig/portreservation.h"

#include <QEventLoop>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

constexpr int dripIntervalMs = 2;
constexpr std::chrono::seconds waitTime(10);

/// Takes the request at the beginning of `buffer`; false while it is incomplete. With
/// `headIsEnough` the body may be incomplete.
bool takeRequest(QByteArray &buffer, bool headIsEnough, LoopbackServer::Request &request)
{
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return false;
    QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> words = lines.takeFirst().trimmed().split(' ');
    request.verb = words.value(0);
    request.target = words.value(1);
    const qsizetype mark = request.target.indexOf('?');
    request.path = mark < 0 ? request.target : request.target.left(mark);
    request.query = mark < 0 ? QByteArray() : request.target.mid(mark + 1);
    for (const QByteArray &line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        request.headers.emplaceBack(line.left(colon), line.mid(colon + 1).trimmed());
    }
    const qsizetype bodySize = request.header("Content-Length").toLongLong();
    const qsizetype bodyStart = headEnd + 4;
    if (buffer.size() - bodyStart < bodySize && !headIsEnough)
        return false;
    request.body = buffer.mid(bodyStart, bodySize);
    buffer.remove(0, std::min(bodyStart + bodySize, buffer.size()));
    return true;
}

/// Whether the port is unused by this program so far: clients remember a host's behaviour.
bool isNewPort(int port)
{
    static std::mutex mutex;
    static QSet<int> used;
    const std::lock_guard guard(mutex);
    const bool isNew = !used.contains(port);
    used.insert(port);
    return isNew;
}

} // namespace

/// Lives in the server's thread.
class LoopbackServer::Worker : public QObject
{
public:
    explicit Worker(State &state)
        : state(state)
    {
    }

    int listen()
    {
        server = new QTcpServer(this);
        connect(server, &QTcpServer::newConnection, this, &Worker::accept);
        do {
            server->close();
            if (!server->listen(QHostAddress::LocalHost, 0))
                qFatal("LoopbackServer: %s", qPrintable(server->errorString()));
        } while (!isNewPort(server->serverPort()));
        return server->serverPort();
    }

    void stop()
    {
        connections.clear();
        delete std::exchange(server, nullptr);
    }

    void release()
    {
        const QList<QTcpSocket *> sockets = server->findChildren<QTcpSocket *>();
        for (QTcpSocket *socket : sockets) {
            Connection &connection = connections[socket];
            if (!std::exchange(connection.isHeld, false))
                continue;
            send(socket, connection.current);
        }
    }

    void closeConnections()
    {
        const QList<QTcpSocket *> sockets = server->findChildren<QTcpSocket *>();
        for (QTcpSocket *socket : sockets)
            socket->close();
    }

private:
    struct Connection
    {
        int number = 0;
        QByteArray buffer;
        Reply current;
        bool isHeld = false;
        bool isBusy = false;
    };

    void accept()
    {
        while (QTcpSocket *socket = server->nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] { forget(socket); });
            const std::lock_guard guard(state.mutex);
            connections[socket].number = ++state.connectionCount;
            ++state.openConnectionCount;
            state.changed.notify_all();
        }
    }

    void forget(QTcpSocket *socket)
    {
        if (!connections.remove(socket))
            return;
        socket->deleteLater();
        const std::lock_guard guard(state.mutex);
        --state.openConnectionCount;
        state.changed.notify_all();
    }

    void read(QTcpSocket *socket)
    {
        const QByteArray bytes = socket->readAll();
        connections[socket].buffer += bytes;
        {
            const std::lock_guard guard(state.mutex);
            state.received += bytes;
            state.changed.notify_all();
        }
        answerNext(socket);
    }

    void answerNext(QTcpSocket *socket)
    {
        Connection &connection = connections[socket];
        if (connection.isBusy)
            return;
        Request request;
        request.connection = connection.number;
        {
            const std::lock_guard guard(state.mutex);
            const bool isEarly = !state.script.isEmpty() && state.script.first().isEarly;
            if (!takeRequest(connection.buffer, isEarly, request))
                return;
            connection.current = state.script.isEmpty() ? answer(200) : state.script.takeFirst();
            state.requests.append(request);
            state.changed.notify_all();
        }
        connection.isBusy = true;
        connection.isHeld = connection.current.isHeld;
        if (!connection.isHeld)
            send(socket, connection.current);
    }

    void send(QTcpSocket *socket, const Reply &reply)
    {
        if (reply.dripAfter < 0) {
            socket->write(reply.bytes);
            finish(socket, reply.then);
            return;
        }
        socket->write(reply.bytes.left(reply.dripAfter));
        auto *timer = new QTimer(socket);
        connect(timer, &QTimer::timeout, socket,
                [this, socket, reply, timer, position = reply.dripAfter]() mutable {
                    if (position < reply.bytes.size()) {
                        socket->write(reply.bytes.mid(position++, 1));
                        return;
                    }
                    timer->stop();
                    finish(socket, reply.then);
                });
        timer->start(dripIntervalMs);
    }

    void finish(QTcpSocket *socket, Reply::Then then)
    {
        switch (then) {
        case Reply::Then::KeepOpen:
            if (!connections.value(socket).current.bytes.isEmpty()) {
                connections[socket].isBusy = false;
                answerNext(socket);
            }
            break;
        case Reply::Then::Close:
            socket->disconnectFromHost();
            break;
        case Reply::Then::Reset: {
            socket->flush();
            const linger atOnce = {1, 0};
            ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER,
                         &atOnce, sizeof(atOnce));
            socket->abort();
            break;
        }
        }
    }

    State &state;
    QTcpServer *server = nullptr;
    QHash<QTcpSocket *, Connection> connections;
};

QByteArray LoopbackServer::Request::header(const QByteArray &name) const
{
    return headerValues(name).value(0);
}

QList<QByteArray> LoopbackServer::Request::headerValues(const QByteArray &name) const
{
    QList<QByteArray> values;
    for (const auto &[candidate, value] : headers) {
        if (candidate.compare(name, Qt::CaseInsensitive) == 0)
            values.append(value);
    }
    return values;
}

LoopbackServer::Reply LoopbackServer::Reply::closing() const
{
    Reply reply = *this;
    reply.then = Then::Close;
    return reply;
}

LoopbackServer::Reply LoopbackServer::Reply::resetting() const
{
    Reply reply = *this;
    reply.then = Then::Reset;
    return reply;
}

LoopbackServer::Reply LoopbackServer::Reply::held() const
{
    Reply reply = *this;
    reply.isHeld = true;
    return reply;
}

LoopbackServer::Reply LoopbackServer::Reply::drippingAfter(qsizetype count) const
{
    Reply reply = *this;
    reply.dripAfter = count;
    return reply;
}

LoopbackServer::Reply LoopbackServer::Reply::early() const
{
    Reply reply = *this;
    reply.isEarly = true;
    return reply;
}

LoopbackServer::Reply LoopbackServer::answer(int status, const QByteArray &body,
                                             const QByteArray &headers)
{
    return raw("HTTP/1.1 " + QByteArray::number(status) + " Status\r\n" + headers
               + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
}

LoopbackServer::Reply LoopbackServer::raw(const QByteArray &bytes)
{
    Reply reply;
    reply.bytes = bytes;
    return reply;
}

LoopbackServer::Reply LoopbackServer::silence()
{
    return {};
}

int LoopbackServer::unusedPort()
{
    static std::vector<std::unique_ptr<PortReservation>> reservations;
    reservations.push_back(std::make_unique<PortReservation>());
    return reservations.back()->port();
}

// The threads synchronize by a socket pair and a std::mutex, which ThreadSanitizer understands,
// unlike Qt's event queue.
LoopbackServer::LoopbackServer()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, orders) != 0)
        qFatal("LoopbackServer: no socket pair");
    thread = std::thread(&LoopbackServer::serve, this);
    std::unique_lock lock(state.mutex);
    state.changed.wait(lock, [this] { return isServing; });
}

LoopbackServer::~LoopbackServer()
{
    ::shutdown(orders[0], SHUT_RDWR);
    thread.join();
    ::close(orders[0]);
    ::close(orders[1]);
}

void LoopbackServer::serve()
{
    QEventLoop loop; // first: creates the event dispatcher that sockets need
    Worker worker(state);
    const int port = worker.listen();
    QSocketNotifier notifier(orders[1], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &loop, [&] {
        char sign = 0;
        if (::read(orders[1], &sign, 1) != 1) {
            loop.quit();
            return;
        }
        std::function<void(Worker &)> work;
        {
            const std::lock_guard guard(state.mutex);
            work = ordered;
        }
        work(worker);
        const std::lock_guard guard(state.mutex);
        ordered = nullptr;
        state.changed.notify_all();
    });
    {
        const std::lock_guard guard(state.mutex);
        port_ = port;
        isServing = true;
        state.changed.notify_all();
    }
    loop.exec();
    worker.stop();
}

void LoopbackServer::order(const std::function<void(Worker &)> &work)
{
    std::unique_lock lock(state.mutex);
    ordered = work;
    if (::write(orders[0], "o", 1) != 1)
        qFatal("LoopbackServer: the thread is gone");
    state.changed.wait(lock, [this] { return !ordered; });
}

int LoopbackServer::port() const
{
    return port_;
}

QUrl LoopbackServer::url(const QString &target) const
{
    return QUrl(u"http://127.0.0.1:%1%2"_s.arg(QString::number(port_), target));
}

void LoopbackServer::play(const QList<Reply> &replies)
{
    const std::lock_guard guard(state.mutex);
    state.script += replies;
}

void LoopbackServer::release()
{
    order([](Worker &worker) { worker.release(); });
}

void LoopbackServer::closeConnections()
{
    order([](Worker &worker) { worker.closeConnections(); });
}

QList<LoopbackServer::Request> LoopbackServer::requests() const
{
    const std::lock_guard guard(state.mutex);
    return state.requests;
}

int LoopbackServer::connectionCount() const
{
    const std::lock_guard guard(state.mutex);
    return state.connectionCount;
}

int LoopbackServer::openConnectionCount() const
{
    const std::lock_guard guard(state.mutex);
    return state.openConnectionCount;
}

QByteArray LoopbackServer::received() const
{
    const std::lock_guard guard(state.mutex);
    return state.received;
}

bool LoopbackServer::waitForRequests(int count) const
{
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, waitTime, [&] { return state.requests.size() >= count; });
}

bool LoopbackServer::waitForOpenConnections(int count) const
{
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, waitTime,
                                  [&] { return state.openConnectionCount == count; });
}

} // namespace rig
