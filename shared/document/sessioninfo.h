#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariantMap>

/// What the bonus server is told of the sale behind an operation. The till prepares it as a map,
/// and each entry reaches the server as it stands, so a new one asks for no change here.
class SessionInfo
{
public:
    SessionInfo() = default;
    /// The entry `sessionId` of the map is the session's id; all others are kept.
    explicit SessionInfo(const QVariantMap &map);

    void setSessionId(const QString &id) { sessionId = id; }
    QString getSessionId() const { return sessionId; }
    /// Everything but the session's id.
    QVariantMap getDetails() const { return details; }

    /// The entries beside one another, the session's id as `sessionId` among them.
    QJsonObject toJson() const;

private:
    QString sessionId;
    QVariantMap details;
};
