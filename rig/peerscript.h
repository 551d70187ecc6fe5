#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace rig {

/// A peer's action after a request.
struct Reply
{
    /// Close and Reset end the connection without an answer. Silence leaves it open. Raw sends
    /// `body` unchanged, including a status line, and closes.
    enum class Manner
    {
        Answer,
        Close,
        Reset,
        Silence,
        Raw
    };

    Manner manner = Manner::Answer;
    int status = 200;
    QMap<QString, QString> headers;
    QByteArray body;
    /// The connection ends after this many bytes of the body; -1: it does not.
    int cutAfter = -1;
    double delaySeconds = 0;
    /// The reply waits for ScriptedPeer::release().
    bool held = false;
};

/// An expected request and the answer to it. Unset members are not compared.
struct Exchange
{
    /// Verb and target, `PUT /cards?till=7`; for TCP empty.
    QString request;
    /// All headers except those that the transport adds.
    std::optional<QMap<QString, QString>> headers;
    /// A text is compared byte by byte, any other value as JSON.
    QJsonValue body = QJsonValue(QJsonValue::Undefined);
    Reply reply;
};

/// The script of a simulated outside service.
struct PeerScript
{
    enum class Kind
    {
        Http,
        Https,
        Tcp
    };

    QString name;
    Kind kind = Kind::Http;
    bool listening = true;
    /// Requests may arrive in any order; each uses the first exchange that matches.
    bool anyOrder = false;
    /// For Https: callers must have a certificate of the peer's authority.
    bool wantsClientCertificate = false;
    /// For Tcp: the bytes that the peer sends first.
    QByteArray greeting;
    QList<Exchange> exchanges;
};

} // namespace rig
