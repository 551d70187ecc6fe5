#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `rsbsbp` messages: one refund request, and a short poll for its outcome when the
/// request was not answered in time. The partner's numeric `code` is the answer.
class RsbSbpHandler : public BasicHandler
{
public:
    RsbSbpHandler();
    bool sendMessage(const Message &message) override;
    /// Asks for the outcome of the refund until an answer ends it or `duration` is over; at least
    /// once. `duration` and `interval`, the time between the starts of requests, are in
    /// milliseconds. True when the last answer says that the money is on its way back.
    virtual bool pollRefundStatus(RestClient &client, const QUrl &url, const QJsonDocument &body,
                                  const RestClient::Headers &headers, int duration, int interval);

private:
    /// Judges an answer to the refund itself, and its failure.
    bool judgeRefund(const RestClient &client);
    /// False: the bank has answered, and its code does not say that the refund is made.
    bool keepByCode(const RestClient &client, int code);
};
