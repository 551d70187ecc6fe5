#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariantMap>

/// Data of the sale for the bonus server. The till prepares it as a map whose entries are sent
/// unchanged, so a new entry needs no change here.
class SessionInfo
{
public:
    SessionInfo() = default;
    /// The entry `sessionId` of the map is the session's id; all others are kept.
    explicit SessionInfo(const QVariantMap &map);

    void setSessionId(const QString &id) { sessionId = id; }
    QString getSessionId() const { return sessionId; }
    /// All entries except the session's id.
    QVariantMap getDetails() const { return details; }

    /// All entries in one object, with the session's id as `sessionId`.
    QJsonObject toJson() const;

private:
    QString sessionId;
    QVariantMap details;
};
