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

/// Qt's parser leaves a request in the socket's buffer until it is complete.
constexpr qint64 spareBufferBytes = 64 * 1024;
/// The limit of unsent answer bytes per client.
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

/// The connections; lives as long as any of them.
struct HttpServer::Clients
{
    const Limits limits;
    /// Sorted by activity, the most recent last.
    std::list<Connection *> connections = {};
    /// The connection that the parser is reading.
    Connection *reading = nullptr;
};

/// One client. Observes what Qt's parser reads from the socket and when. Owned by the socket, and
/// notified of new data before the parser.
class HttpServer::Connection : public QObject
{
public:
    Connection(QTcpSocket *socket, const std::shared_ptr<Clients> &clients);
    ~Connection() override;

    /// Returns the complete request's head and prepares for the next request.
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

/// Accepts clients; above the limit, closes the one that has been silent longest.
class HttpServer::Listener : public QTcpServer
{
public:
    explicit Listener(const Limits &limits);

    const std::shared_ptr<Clients> clients;

protected:
    void incomingConnection(qintptr descriptor) override;
};

/// Qt's parser. Differences between versions of Qt are handled only here: the answer is sent
/// through the connection, so the last argument is not used.
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
    // The parser reads all of it, unless the request ends earlier: then finishRequest() restarts
    // the count.
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
    // Blank lines between two requests are ignored.
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
    // Queued, because the parser is still using the socket.
    QMetaObject::invokeMethod(
        this, [this] { socket->disconnectFromHost(); }, Qt::QueuedConnection);
}

void HttpServer::Connection::drop()
{
    isClosing = true;
    // The socket is deleted later, when the parser no longer uses it.
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
    // Other numbers would be truncated to 16 bits, and so to another port.
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
