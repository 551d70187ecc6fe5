#include "rig/scriptedpeer.h"

#include "rig/authority.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTimer>

#include <chrono>
#include <cmath>

#include <poll.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace rig {

class ScriptedPeer::Server : public QTcpServer
{
public:
    explicit Server(ScriptedPeer &peer)
        : peer(peer)
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override { peer.accept(descriptor); }

private:
    ScriptedPeer &peer;
};

namespace {

struct Later
{
    /// A socket may be released inside its own signal.
    void operator()(QObject *object) const { object->deleteLater(); }
};

} // namespace

struct ScriptedPeer::Connection
{
    std::unique_ptr<QSslSocket, Later> socket;
    QByteArray buffer;
    /// A request waits for its reply: later data is not read yet.
    bool isAnswering = false;
};

namespace {

QString reasonOf(int status)
{
    switch (status) {
    case 200:
        return u"OK"_s;
    case 201:
        return u"Created"_s;
    case 400:
        return u"Bad Request"_s;
    case 401:
        return u"Unauthorized"_s;
    case 404:
        return u"Not Found"_s;
    case 500:
        return u"Internal Server Error"_s;
    case 503:
        return u"Service Unavailable"_s;
    default:
        return u"Status"_s;
    }
}

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

/// Status line, headers and as much of the body as the script allows.
QByteArray replyBytes(const Reply &reply)
{
    if (reply.manner == Reply::Manner::Raw)
        return reply.body;
    QByteArray result =
        u"HTTP/1.1 %1 %2\r\n"_s.arg(reply.status).arg(reasonOf(reply.status)).toLatin1();
    for (auto header = reply.headers.begin(); header != reply.headers.end(); ++header)
        result += u"%1: %2\r\n"_s.arg(header.key(), header.value()).toUtf8();
    const bool isBodiless = reply.status == 204 || reply.status == 304;
    if (!isBodiless && !reply.headers.contains(u"Content-Length"_s))
        result += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    result += "\r\n";
    return result + (reply.cutAfter < 0 ? reply.body : reply.body.left(reply.cutAfter));
}

/// Ends the connection with a reset.
void resetConnection(QSslSocket &socket)
{
    const linger immediately = {1, 0};
    ::setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediately,
                 sizeof(immediately));
    socket.abort();
}

} // namespace

ScriptedPeer::ScriptedPeer(quint16 port, QObject *parent)
    : QObject(parent)
    , reservation(port)
{
}

ScriptedPeer::~ScriptedPeer()
{
    // Sockets that are destroyed later would call this object.
    for (const ConnectionPointer &connection : std::as_const(connections))
        connection->socket->disconnect(this);
}

quint16 ScriptedPeer::port() const
{
    return reservation.port();
}

QString ScriptedPeer::address(PeerScript::Kind kind, quint16 port)
{
    const QString place = u"127.0.0.1:%1"_s.arg(port);
    switch (kind) {
    case PeerScript::Kind::Http:
        return u"http://"_s + place;
    case PeerScript::Kind::Https:
        return u"https://"_s + place;
    case PeerScript::Kind::Tcp:
        break;
    }
    return place;
}

void ScriptedPeer::play(const PeerScript &newScript, const Authority *newAuthority)
{
    script = newScript;
    authority = newAuthority;
    used = QList<bool>(script.exchanges.size(), false);
    if (script.listening)
        up();
}

void ScriptedPeer::playFreely(PeerScript::Kind kind, const QByteArray &greeting,
                              std::function<Reply(const ArrivedRequest &)> newChoose,
                              const Authority *newAuthority)
{
    choose = std::move(newChoose);
    PeerScript open;
    open.kind = kind;
    open.greeting = greeting;
    play(open, newAuthority);
}

void ScriptedPeer::up()
{
    if (server)
        return;
    server = std::make_unique<Server>(*this);
    if (!server->setSocketDescriptor(reservation.listen()))
        qFatal("%s", qPrintable(server->errorString()));
}

void ScriptedPeer::down()
{
    server.reset();
    reservation.refuse();
    dropCallers();
}

void ScriptedPeer::fail(const Failure &newFailure)
{
    failure = newFailure;
    if (failure->kind == Failure::Kind::Refuse)
        down();
}

void ScriptedPeer::recover()
{
    failure.reset();
    if (script.listening)
        up();
}

void ScriptedPeer::dropCallers()
{
    for (const ConnectionPointer &connection : std::as_const(connections)) {
        connection->socket->disconnect(this);
        connection->socket->abort();
    }
    connections.clear();
    held.clear();
}

void ScriptedPeer::release()
{
    const QList<std::function<void()>> waiting = std::exchange(held, {});
    for (const auto &send : waiting)
        send();
}

int ScriptedPeer::heldReplies() const
{
    return static_cast<int>(held.size());
}

int ScriptedPeer::arrived() const
{
    return arrivedCount;
}

bool ScriptedPeer::isComplete() const
{
    return !used.contains(false);
}

QStringList ScriptedPeer::findings() const
{
    QStringList result = complaints;
    for (qsizetype index = 0; index < used.size(); ++index) {
        if (used[index])
            continue;
        const Exchange &missing = script.exchanges[index];
        result.append(u"peer %1: exchange %2 never came: %3"_s.arg(script.name)
                          .arg(index + 1)
                          .arg(missing.request.isEmpty() ? shortened(missing.body.toString())
                                                         : missing.request));
    }
    for (const ConnectionPointer &connection : connections) {
        if (script.kind != PeerScript::Kind::Tcp && !connection->isAnswering
            && !connection->buffer.isEmpty())
            result.append(u"peer %1: half a request: %2"_s.arg(
                script.name, shortened(QString::fromUtf8(connection->buffer))));
    }
    return result;
}

void ScriptedPeer::drain()
{
    const auto isCallerWaiting = [this] {
        pollfd listening = {static_cast<int>(server->socketDescriptor()), POLLIN, 0};
        return ::poll(&listening, 1, 0) > 0;
    };
    while (server && isCallerWaiting())
        QCoreApplication::processEvents();
    while (script.kind == PeerScript::Kind::Tcp && !connections.isEmpty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void ScriptedPeer::accept(qintptr descriptor)
{
    const auto connection = std::make_shared<Connection>();
    connection->socket.reset(new QSslSocket);
    QSslSocket *socket = connection->socket.get();
    if (!socket->setSocketDescriptor(descriptor))
        return;
    connections.append(connection);
    const std::weak_ptr<Connection> weak = connection;
    connect(socket, &QSslSocket::readyRead, this, [this, weak] {
        if (const ConnectionPointer reading = weak.lock())
            read(reading);
    });
    connect(socket, &QSslSocket::disconnected, this, [this, weak] {
        const ConnectionPointer ended = weak.lock();
        if (ended && script.kind == PeerScript::Kind::Tcp)
            endTcp(ended);
        else if (ended && ended->buffer.isEmpty())
            connections.removeOne(ended);
    });
    if (script.kind == PeerScript::Kind::Https) {
        QSslConfiguration configuration = socket->sslConfiguration();
        configuration.setLocalCertificate(QSslCertificate(authority->serverCertificate()));
        configuration.setPrivateKey(QSslKey(authority->serverKey(), QSsl::Ec));
        configuration.setCaCertificates(QSslCertificate::fromData(authority->certificate()));
        configuration.setPeerVerifyMode(script.wantsClientCertificate ? QSslSocket::VerifyPeer
                                                                      : QSslSocket::VerifyNone);
        // Otherwise Qt closes the connection without the alert that other servers send.
        configuration.setMissingCertificateIsFatal(script.wantsClientCertificate);
        socket->setSslConfiguration(configuration);
        socket->startServerEncryption();
    }
    if (failure && failure->kind == Failure::Kind::Close && script.kind == PeerScript::Kind::Tcp) {
        socket->disconnect(this);
        socket->disconnectFromHost();
        connections.removeOne(connection);
        Q_EMIT exchanged({.isFailure = true});
        return;
    }
    if (script.greeting.isEmpty())
        return;
    if (failure && failure->kind == Failure::Kind::Slow)
        QTimer::singleShot(milliseconds(failure->seconds), socket,
                           [socket, greeting = script.greeting] { socket->write(greeting); });
    else
        socket->write(script.greeting);
}

void ScriptedPeer::read(const ConnectionPointer &connection)
{
    connection->buffer += connection->socket->readAll();
    if (script.kind == PeerScript::Kind::Tcp)
        return;
    ArrivedRequest request;
    while (!connection->isAnswering && takeRequest(connection->buffer, request))
        receive(connection, std::exchange(request, {}));
}

bool ScriptedPeer::takeRequest(QByteArray &buffer, ArrivedRequest &request)
{
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return false;
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    const QList<QByteArray> first = lines.first().trimmed().split(' ');
    qsizetype length = 0;
    for (const QByteArray &line : lines.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon).trimmed();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name.compare("content-length", Qt::CaseInsensitive) == 0)
            length = value.toLongLong();
        if (name.compare("transfer-encoding", Qt::CaseInsensitive) == 0)
            complaints.append(
                u"peer %1: a request with Transfer-Encoding: %2, which no till's "
                "service needs to understand"_s.arg(script.name, QString::fromUtf8(value)));
        request.headers.append({QString::fromUtf8(name), QString::fromUtf8(value)});
    }
    if (buffer.size() < end + 4 + length) {
        request.headers.clear();
        return false;
    }
    request.verb = QString::fromUtf8(first.value(0));
    request.target = QString::fromUtf8(first.value(1));
    request.body = buffer.mid(end + 4, length);
    buffer.remove(0, end + 4 + length);
    return true;
}

const Exchange *ScriptedPeer::nextExchange(const ArrivedRequest &request)
{
    for (qsizetype index = 0; index < used.size(); ++index) {
        if (used[index])
            continue;
        if (script.anyOrder && !differences(script.exchanges[index], request).isEmpty())
            continue;
        used[index] = true;
        return &script.exchanges[index];
    }
    return nullptr;
}

void ScriptedPeer::receive(const ConnectionPointer &connection, const ArrivedRequest &request)
{
    if (!failure) {
        judge(connection, request);
        return;
    }
    connection->isAnswering = true;
    switch (failure->kind) {
    case Failure::Kind::Refuse: // the port is closed
        break;
    case Failure::Kind::Status: {
        Reply refusal;
        refusal.status = failure->status;
        reply(connection, {.request = request, .reply = refusal, .isFailure = true});
        break;
    }
    case Failure::Kind::Close: {
        Reply end;
        end.manner = Reply::Manner::Close;
        reply(connection, {.request = request, .reply = end, .isFailure = true});
        break;
    }
    case Failure::Kind::Slow:
        QTimer::singleShot(milliseconds(failure->seconds), this, [this, connection, request] {
            // A request that its caller has given up is repeated, and matches the script then.
            if (connection->socket->state() == QAbstractSocket::ConnectedState)
                judge(connection, request);
            else
                Q_EMIT exchanged({.request = request, .isFailure = true});
        });
        break;
    }
}

void ScriptedPeer::judge(const ConnectionPointer &connection, const ArrivedRequest &request)
{
    ++arrivedCount;
    if (choose) {
        answer(connection, request, choose(request));
        return;
    }
    const Exchange *exchange = nextExchange(request);
    if (!exchange) {
        complaints.append(u"peer %1: request %2 was not expected:\n%3"_s.arg(script.name)
                              .arg(arrivedCount)
                              .arg(describe(request)));
        Reply refusal;
        refusal.status = 500;
        reply(connection, {.request = request, .reply = refusal});
        Q_EMIT progressed();
        return;
    }
    const QStringList found = differences(*exchange, request);
    for (const QString &difference : found)
        complaints.append(
            u"peer %1, request %2: %3"_s.arg(script.name).arg(arrivedCount).arg(difference));

    answer(connection, request, exchange->reply);
    Q_EMIT progressed();
}

void ScriptedPeer::answer(const ConnectionPointer &connection, const ArrivedRequest &request,
                          const Reply &what)
{
    connection->isAnswering = true;
    const auto send = [this, connection, request, what] {
        reply(connection, {.request = request, .reply = what});
    };
    if (what.held)
        held.append(send);
    else if (what.delaySeconds > 0)
        QTimer::singleShot(milliseconds(what.delaySeconds), this, send);
    else
        send();
}

void ScriptedPeer::reply(const ConnectionPointer &connection, const Traffic &traffic)
{
    const Reply &reply = traffic.reply;
    QSslSocket &socket = *connection->socket;
    if (socket.state() != QAbstractSocket::ConnectedState) // the caller has timed out
        return;
    switch (reply.manner) {
    case Reply::Manner::Silence:
        Q_EMIT exchanged(traffic);
        return;
    case Reply::Manner::Reset:
        resetConnection(socket);
        Q_EMIT exchanged(traffic);
        return;
    case Reply::Manner::Close:
        socket.disconnectFromHost();
        Q_EMIT exchanged(traffic);
        return;
    case Reply::Manner::Raw:
    case Reply::Manner::Answer:
        break;
    }
    socket.write(replyBytes(reply));
    connection->isAnswering = false;
    Traffic answered = traffic;
    answered.status = reply.status;
    Q_EMIT exchanged(answered);
    if (reply.manner == Reply::Manner::Raw || reply.cutAfter >= 0
        || reply.headers.value(u"Connection"_s) == u"close"_s)
        socket.disconnectFromHost();
    else if (!connection->buffer.isEmpty())
        read(connection);
}

void ScriptedPeer::endTcp(const ConnectionPointer &connection)
{
    connection->buffer += connection->socket->readAll();
    connections.removeOne(connection);
    ++arrivedCount;
    const QString text = QString::fromUtf8(connection->buffer);
    ArrivedRequest request;
    request.body = connection->buffer;
    if (choose) {
        Q_EMIT exchanged({.request = request});
        return;
    }
    const Exchange *exchange = nextExchange(request);
    if (!exchange) {
        complaints.append(
            u"peer %1: connection %2 was not expected, it brought: %3"_s.arg(script.name)
                .arg(arrivedCount)
                .arg(shortened(text)));
    } else {
        const QStringList found = differences(*exchange, request);
        for (const QString &difference : found)
            complaints.append(
                u"peer %1, connection %2: %3"_s.arg(script.name).arg(arrivedCount).arg(difference));
        Q_EMIT exchanged({.request = request});
    }
    Q_EMIT progressed();
}

} // namespace rig
