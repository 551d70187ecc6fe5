#pragma once

#include "rig/comparison.h"
#include "rig/peerscript.h"
#include "rig/portreservation.h"

#include <QObject>
#include <QTcpServer>

#include <functional>
#include <memory>

namespace rig {

class Authority;

/// A service's failure, which replaces its script.
struct Failure
{
    enum class Kind
    {
        /// The port is closed.
        Refuse,
        /// Every request gets `status` and an empty body.
        Status,
        /// The script's replies come `seconds` late.
        Slow,
        /// The connection ends after a request, without an answer.
        Close
    };

    Kind kind = Kind::Refuse;
    int status = 0;
    double seconds = 0;
};

/// A request and its result.
struct Traffic
{
    /// For plain TCP without a verb: the body contains the bytes of the connection.
    ArrivedRequest request = {};
    Reply reply = {};
    /// 0: no answer was sent.
    int status = 0;
    /// A failure was played instead of the script.
    bool isFailure = false;
};

/// An outside service on a port of 127.0.0.1 that plays a script and records the requests. The port
/// is known at once, so that settings can contain it; the script is set later.
/// Thread: the one that made it, whose event loop must run.
class ScriptedPeer : public QObject
{
    Q_OBJECT

public:
    /// Port 0: any free one.
    explicit ScriptedPeer(quint16 port = 0, QObject *parent = nullptr);
    ~ScriptedPeer() override;

    quint16 port() const;
    /// `http://127.0.0.1:port`, for TCP `127.0.0.1:port`.
    static QString address(PeerScript::Kind kind, quint16 port);

    /// Sets the script and listens, unless the script says otherwise. For Https, `authority` issues
    /// the peer's certificate and is the CA for callers; it must outlive the peer.
    void play(const PeerScript &script, const Authority *authority = nullptr);

    /// From now on answers every request by calling `choose`, without a script. A Tcp peer sends
    /// its greeting and accepts any data. `authority` as for play().
    void playFreely(PeerScript::Kind kind, const QByteArray &greeting,
                    std::function<Reply(const ArrivedRequest &)> choose,
                    const Authority *authority = nullptr);

    void up();
    /// From now on refuses connections, and drops the open ones.
    void down();
    /// From now on plays the failure; the script is paused. A Tcp peer has no status to send.
    void fail(const Failure &failure);
    /// Continues the script. A reply that is late already stays late.
    void recover();
    /// Sends the replies held so far.
    void release();
    int heldReplies() const;

    /// Reads what closed connections have left. Call when no caller is running any more.
    void drain();
    /// Drops the connections and the replies held for them.
    void dropCallers();
    int arrived() const;
    bool isComplete() const;
    /// Requests that were wrong, unexpected or missing.
    QStringList findings() const;

Q_SIGNALS:
    /// A request got its reply, or was left without one.
    void exchanged(const rig::Traffic &traffic);
    /// A Tcp connection has ended or a request has arrived: findings() may have changed.
    void progressed();

private:
    class Server;
    struct Connection;
    using ConnectionPointer = std::shared_ptr<Connection>;

    void accept(qintptr descriptor);
    void read(const ConnectionPointer &connection);
    bool takeRequest(QByteArray &buffer, ArrivedRequest &request);
    void receive(const ConnectionPointer &connection, const ArrivedRequest &request);
    void judge(const ConnectionPointer &connection, const ArrivedRequest &request);
    const Exchange *nextExchange(const ArrivedRequest &request);
    /// Now, or when the reply is due.
    void answer(const ConnectionPointer &connection, const ArrivedRequest &request,
                const Reply &what);
    void reply(const ConnectionPointer &connection, const Traffic &traffic);
    void endTcp(const ConnectionPointer &connection);

    PortReservation reservation;
    std::unique_ptr<Server> server;
    PeerScript script;
    const Authority *authority = nullptr;
    QList<ConnectionPointer> connections;
    QList<std::function<void()>> held;
    QList<bool> used;
    std::optional<Failure> failure;
    std::function<Reply(const ArrivedRequest &)> choose;
    int arrivedCount = 0;
    QStringList complaints;
};

} // namespace rig
