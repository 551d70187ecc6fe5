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

/// How a service fails, in place of what its script tells.
struct Failure
{
    enum class Kind
    {
        /// Nobody listens.
        Refuse,
        /// Every request is answered with `status` and an empty body.
        Status,
        /// What the script tells comes `seconds` late.
        Slow,
        /// The connection ends as soon as a request is there, without an answer.
        Close
    };

    Kind kind = Kind::Refuse;
    int status = 0;
    double seconds = 0;
};

/// A request and what it was met with.
struct Traffic
{
    /// Over plain TCP without a verb: the body is what the connection brought.
    ArrivedRequest request = {};
    Reply reply = {};
    /// 0: no answer was sent.
    int status = 0;
    /// A failure was played instead of the script.
    bool isFailure = false;
};

/// An outside service on a port of 127.0.0.1 that plays a script and remembers what it was told.
/// Its port is given at once, so that settings can name it; the script follows.
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

    /// Takes the script and listens, unless the script says otherwise. For Https `authority`
    /// vouches for us and tells whose callers to trust; it must outlive the peer.
    void play(const PeerScript &script, const Authority *authority = nullptr);

    /// Answers every request as `choose` says, from now on and without comparing it with a script.
    /// A Tcp peer says its greeting and takes what comes. `authority` as for play().
    void playFreely(PeerScript::Kind kind, const QByteArray &greeting,
                    std::function<Reply(const ArrivedRequest &)> choose,
                    const Authority *authority = nullptr);

    void up();
    /// Refuses callers from now on and drops those that are there.
    void down();
    /// Plays the failure instead of the script from now on; the script waits. A service that speaks
    /// first, over plain TCP, knows no status.
    void fail(const Failure &failure);
    /// Back to the script. A reply that is late already stays late.
    void recover();
    /// Sends the replies that were held back so far.
    void release();
    int heldReplies() const;

    /// Takes in what callers that are gone have left behind. Call when no caller lives any more.
    void drain();
    /// Forgets the callers, and the replies that were held for them.
    void dropCallers();
    int arrived() const;
    bool isComplete() const;
    /// What arrived wrongly, too much or not at all.
    QStringList findings() const;

Q_SIGNALS:
    /// A request has been met with its reply, or with none.
    void exchanged(const rig::Traffic &traffic);
    /// A connection of a Tcp peer has ended or a request has arrived: findings() may have changed.
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
    /// At once, or when the reply is due.
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
