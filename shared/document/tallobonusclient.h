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

/// Speaks to the maker's bonus server: JSON over HTTP, one POST for an operation to
/// `<host>/<endPoint>/<operation>`, such as `http://bonus:8080/shop/add`. Without an endpoint its
/// part of the path is left out; slashes too many at either end of it do no harm.
///
/// The request is an object with the operation's arguments under the names of the parameters below
/// (the flag of a last step is `final`), and with `terminalId`. A card is `{"number", "amount"}`,
/// an asset group `{"id", "beginDate", "endDate", "weight"}`, its dates as
/// `2026-01-31T00:00:00+03:00` or null. With a user or a password set, both go along as basic
/// authentication in UTF-8.
///
/// The hosts are tried in their order, and the next one after a failure of the network only, an
/// unusable address included: an answer, whatever it says, ends the operation.
///
/// The reply is an object. `{"result": 0}` with a status of the 200s is success. A `result` above 0
/// with `"critical": false` throws BonusUncriticalException with the reply's `message`, whatever
/// the status, since another attempt would be refused again. All else throws BonusSystemError:
/// another result, no `critical`, a `result` that is no number, a reply that cannot be read, a
/// result 0 under an error status, no host that answers, and no hosts at all. Its text is the
/// reply's `message`, or what is known without one. Such a failure is logged, in the category
/// `tallobonusclient`; an uncritical one is left to the caller.
///
/// Settings hold for all operations that follow.
/// Thread: the one that made it.
class TalloBonusClient
{
public:
    virtual ~TalloBonusClient();

    /// Bounds one exchange, so that an operation takes at most this for each host. What 0 means is
    /// RestClient's to say.
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
