#include "shared/net/httpserver.h"

#include <log4qt/logmanager.h>

#include <QAbstractHttpServer>
#include <QHttpServerRequest>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
#include <QHttpHeaders>
#endif

#include <list>

using namespace Qt::StringLiterals;

namespace {

/// Qt's parser keeps a request in the socket's buffer until it is whole.
constexpr qint64 spareBufferBytes = 64 * 1024;
/// What a client may leave unread of its answers.
constexpr qint64 maxUnsentBytes = 1024 * 1024;
constexpr int listenBacklog = 512;

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"httpserver"_s);
}

ResponseHeader emptyResponse(int code, const QString &reason)
{
    ResponseHeader header;
    header.setStatusLine(code, reason, 1, 1);
    return header;
}

} // namespace

/// The connections, as long as any of them lives.
struct HttpServer::Clients
{
    const Limits limits;
    /// The one that was heard last stands at the end.
    std::list<Connection *> connections = {};
    /// Whose bytes the parser is reading.
    Connection *reading = nullptr;
};

/// One client: watches over what Qt's parser reads from the socket and when. Belongs to the socket,
/// and hears of every arrival before the parser does.
class HttpServer::Connection : public QObject
{
public:
    Connection(QTcpSocket *socket, const std::shared_ptr<Clients> &clients);
    ~Connection() override;

    /// Takes note of the whole request; from here on the next one is awaited.
    RequestHeader finishRequest();
    void send(const ResponseHeader &header, const QByteArray &body);
    void closeWhenSent();
    /// Ends the connection at once.
    void drop();

    bool isAnswered = false;
    bool isKeepAlive = false;

private:
    void watch();
    void checkSize();
    void readRequestLine();
    void refuse(int code, const QString &reason);

    QTcpSocket *socket;
    const std::shared_ptr<Clients> clients;
    QTimer timer;
    QByteArray requestLine;
    bool isLineWhole = false;
    qint64 receivedBytes = 0;
    bool isHead = false;
    bool isClosing = false;
};

/// Accepts clients, the longest silent of which goes when there are too many.
class HttpServer::Listener : public QTcpServer
{
public:
    explicit Listener(const Limits &limits);

    const std::shared_ptr<Clients> clients;

protected:
    void incomingConnection(qintptr descriptor) override;
};

/// Qt's parser. Where the versions of Qt differ stands here alone: the answer goes out through the
/// connection, so the last argument is never needed.
class HttpServer::Engine : public QAbstractHttpServer
{
public:
    explicit Engine(HttpServer &server)
        : server(server)
    {
    }

protected:
#if QT_VERSION < QT_VERSION_CHECK(6, 8, 0)
    using Answer = QTcpSocket *;
#else
    using Answer = QHttpServerResponder &;
#endif

    bool handleRequest(const QHttpServerRequest &request, Answer) override
    {
        pass(request);
        return true;
    }

    void missingHandler(const QHttpServerRequest &request, Answer) override
    {
        pass(request);
    }

private:
    void pass(const QHttpServerRequest &request)
    {
        Connection *const connection = server.listener->clients->reading;
        RequestHeader header = connection->finishRequest();
        const auto lines = request.headers();
#if QT_VERSION < QT_VERSION_CHECK(6, 8, 0)
        for (const auto &[name, value] : lines)
            header.setValue(name, value);
#else
        for (qsizetype i = 0; i < lines.size(); ++i)
            header.setValue(QByteArray(lines.nameAt(i).data(), lines.nameAt(i).size()),
                            lines.valueAt(i).toByteArray());
#endif
        server.handle(*connection, request.body(), header);
    }

    HttpServer &server;
};

HttpServer::Connection::Connection(QTcpSocket *socket, const std::shared_ptr<Clients> &clients)
    : QObject(socket)
    , socket(socket)
    , clients(clients)
{
    clients->connections.push_back(this);
    socket->setReadBufferSize(clients->limits.requestBytes + spareBufferBytes);
    connect(socket, &QTcpSocket::readyRead, this, &Connection::watch);
    connect(&timer, &QTimer::timeout, this, &Connection::drop);
    timer.setSingleShot(true);
    timer.start(clients->limits.requestTime);
}

HttpServer::Connection::~Connection()
{
    clients->connections.remove(this);
    if (clients->reading == this)
        clients->reading = nullptr;
}

void HttpServer::Connection::watch()
{
    clients->reading = this;
    if (isClosing || socket->bytesAvailable() == 0)
        return;
    clients->connections.remove(this);
    clients->connections.push_back(this);
    if (receivedBytes == 0)
        timer.start(clients->limits.requestTime);

    if (!isLineWhole)
        readRequestLine();
    if (requestLine.size() > clients->limits.requestLineBytes)
        refuse(414, u"URI Too Long"_s);
    // The parser takes it all, unless the request ends before: finishRequest() begins a new count.
    receivedBytes += socket->bytesAvailable();
    if (receivedBytes > clients->limits.requestBytes)
        QMetaObject::invokeMethod(this, &Connection::checkSize, Qt::QueuedConnection);
}

void HttpServer::Connection::checkSize()
{
    if (!isClosing && receivedBytes > clients->limits.requestBytes)
        refuse(413, u"Content Too Large"_s);
}

void HttpServer::Connection::readRequestLine()
{
    QByteArray fresh = socket->peek(clients->limits.requestLineBytes + 1 - requestLine.size());
    const qsizetype end = fresh.indexOf('\n');
    isLineWhole = end >= 0;
    if (isLineWhole)
        fresh.truncate(end);
    requestLine += fresh;
    // Blank lines between two requests are nobody's.
    if (requestLine.trimmed().isEmpty()) {
        requestLine.clear();
        isLineWhole = false;
    }
}

void HttpServer::Connection::refuse(int code, const QString &reason)
{
    isKeepAlive = false;
    send(emptyResponse(code, reason), QByteArray());
    closeWhenSent();
}

RequestHeader HttpServer::Connection::finishRequest()
{
    const RequestHeader header(requestLine);
    requestLine.clear();
    isLineWhole = false;
    receivedBytes = 0;
    isAnswered = isClosing;
    isHead = header.getMethod() == "HEAD";
    timer.start(clients->limits.idleTime);
    return header;
}

void HttpServer::Connection::send(const ResponseHeader &header, const QByteArray &body)
{
    isAnswered = true;
    socket->write(header.statusLine() + header.toByteArray());
    if (!header.contains("Content-Length"))
        socket->write("Content-Length: " + QByteArray::number(body.size()) + "\r\n");
    socket->write(isKeepAlive && !isClosing ? "Connection: keep-alive\r\n\r\n"
                                            : "Connection: close\r\n\r\n");
    if (!isHead)
        socket->write(body);
    if (socket->bytesToWrite() > maxUnsentBytes)
        closeWhenSent();
}

void HttpServer::Connection::closeWhenSent()
{
    isClosing = true;
    // Not from within the parser's own work on the socket.
    QMetaObject::invokeMethod(
        this, [this] { socket->disconnectFromHost(); }, Qt::QueuedConnection);
}

void HttpServer::Connection::drop()
{
    isClosing = true;
    // The socket lives on until the parser has let go of it.
    clients->connections.remove(this);
    socket->abort();
}

HttpServer::Listener::Listener(const Limits &limits)
    : clients(std::make_shared<Clients>(Clients{limits}))
{
    setListenBacklogSize(listenBacklog);
}

void HttpServer::Listener::incomingConnection(qintptr descriptor)
{
    auto socket = std::make_unique<QTcpSocket>(this);
    if (!socket->setSocketDescriptor(descriptor))
        return;
    if (clients->connections.size() >= static_cast<size_t>(clients->limits.connections))
        clients->connections.front()->drop();
    new Connection(socket.get(), clients);
    addPendingConnection(socket.release());
}

HttpServer::HttpServer(int port, QObject *parent)
    : HttpServer(port, Limits(), parent)
{
}

HttpServer::HttpServer(int port, const Limits &limits, QObject *parent)
    : QObject(parent)
    , engine(std::make_unique<Engine>(*this))
{
    auto candidate = std::make_unique<Listener>(limits);
    // The low 16 bits of any other number would be somebody else's port.
    if (!isPort(port)) {
        listenError_ = u"no port has the number %1"_s.arg(port);
        return;
    }
    if (!candidate->listen(QHostAddress::LocalHost, static_cast<quint16>(port))) {
        listenError_ = candidate->errorString();
        return;
    }
    listener = candidate.release();
    engine->bind(listener);
}

HttpServer::~HttpServer() = default;

void HttpServer::sendResponse(const ResponseHeader &header, const QByteArray &body)
{
    if (!current || current->isAnswered) {
        logger()->warn(u"Ответ без запроса не отправлен"_s);
        return;
    }
    current->send(header, body);
}

int HttpServer::port() const
{
    return listener ? listener->serverPort() : 0;
}

void HttpServer::handle(Connection &connection, const QByteArray &body, const RequestHeader &header)
{
    if (connection.isAnswered)
        return;
    connection.isKeepAlive = header.isKeepAlive();
    current = &connection;
    Q_EMIT requestReceived(header, body);
    if (!connection.isAnswered)
        connection.send(emptyResponse(500, u"Internal Server Error"_s), QByteArray());
    current = nullptr;
    if (!connection.isKeepAlive)
        connection.closeWhenSent();
}
