#pragma once

#include "shared/document/bonusassetgroup.h"
#include "shared/document/bonuscard.h"
#include "shared/document/bonussystemerror.h"
#include "shared/document/sessioninfo.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <chrono>

namespace http {
struct Response;
}

/// A client of the maker's bonus server: JSON over HTTP, one POST for an operation to
/// `<host>/<endPoint>/<operation>`, such as `http://bonus:8080/shop/add`. Without an endpoint the
/// path is `/<operation>`. Extra slashes around the endpoint are ignored.
///
/// The request is an object with the operation's arguments, named like the parameters below (the
/// flag of a last step is `final`), and with `terminalId`. A card is `{"number", "amount"}`. An
/// asset group is `{"id", "beginDate", "endDate", "weight"}`, its dates as
/// `2026-01-31T00:00:00+03:00` or null. If a user or a password is set, both are sent as basic
/// authentication in UTF-8.
///
/// The hosts are tried in order. The next one is tried only after a network failure or an unusable
/// address; any answer ends the operation.
///
/// The reply is an object. `{"result": 0}` with a 2xx status is success. A `result` above 0 with
/// `"critical": false` throws BonusUncriticalException with the reply's `message`, whatever the
/// status, since another attempt would be refused again. Anything else throws BonusSystemError:
/// another result, no `critical`, a `result` that is not a number, an unreadable reply, a result 0
/// with an error status, no answer from any host, no hosts at all. Its text is the reply's
/// `message`, or a description without one. It is logged in the category `tallobonusclient`; an
/// uncritical error is left to the caller.
///
/// Settings apply to all later operations.
/// Thread: the one that made it.
class TalloBonusClient
{
public:
    virtual ~TalloBonusClient();

    /// Limits one exchange, so an operation takes at most this time for each host. For 0 see
    /// RestClient.
    virtual void setTimeout(int seconds);
    virtual void setTerminalId(const QString &id);
    virtual void setHosts(const QList<QUrl> &addresses);
    virtual void checkAssets(const QString &parentSessionId);
    virtual void back(const BonusCard &card, const SessionInfo &sessionInfo,
                      const BonusAssetGroup &assetGroup, const QString &parentSessionId,
                      bool fullReturn, bool isFinal);
    virtual void add(const QString &sessionId, const BonusCard &card,
                     const SessionInfo &sessionInfo, const BonusAssetGroup &assetGroup,
                     bool nonConfirm, bool isFinal);
    virtual void sub(const QString &sessionId, const BonusCard &card,
                     const SessionInfo &sessionInfo, const BonusAssetGroup &assetGroup,
                     bool nonConfirm, bool isFinal);
    virtual void rollback(const QString &sessionId, bool flag, const QString &reason,
                          const QString &source);
    virtual void commit(const QString &sessionId, bool flag, const QString &reason,
                        const QString &source);
    virtual void setAdditionalCardStatus(const BonusCard &card, const QString &additionalCardStatus,
                                         int cardStatus);
    virtual void setEndPoint(const QString &path);

    void setUser(const QString &name);
    void setPassword(const QString &newPassword);

private:
    void perform(const QString &operation, QJsonObject arguments);
    QUrl addressOf(const QUrl &host, const QString &operation) const;
    static void judge(const QString &operation, const http::Response &response);

    std::chrono::seconds timeout{0};
    QString terminalId;
    QList<QUrl> hosts;
    QString endPoint;
    QString user;
    QString password;
};
