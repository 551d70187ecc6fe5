#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace rig {

/// What a peer does once a request is there.
struct Reply
{
    /// Close and Reset end the connection without an answer, Silence leaves it open, Raw sends
    /// `body` as it is, status line included, and closes.
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
    /// The connection ends after that many bytes of the body; -1: it does not.
    int cutAfter = -1;
    double delaySeconds = 0;
    /// The reply waits for ScriptedPeer::release().
    bool held = false;
};

/// A request that must arrive, and the answer to it. What is absent is not compared.
struct Exchange
{
    /// Verb and target, `PUT /cards?till=7`; for TCP empty.
    QString request;
    /// All headers but those that the transport itself adds.
    std::optional<QMap<QString, QString>> headers;
    /// A text is compared byte by byte, anything else as JSON.
    QJsonValue body = QJsonValue(QJsonValue::Undefined);
    Reply reply;
};

/// An outside service, played from a script.
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
    /// Requests may come in any order; each takes the first exchange that it fits.
    bool anyOrder = false;
    /// For Https: a caller must show a certificate of the peer's authority.
    bool wantsClientCertificate = false;
    /// For Tcp: what the peer says first.
    QByteArray greeting;
    QList<Exchange> exchanges;
};

} // namespace rig
