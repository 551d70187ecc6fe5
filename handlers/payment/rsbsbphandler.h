#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `rsbsbp` messages: one refund request. If it is not answered in time, the handler polls
/// for the refund's state. The partner's numeric `code` is the answer.
class RsbSbpHandler : public BasicHandler
{
public:
    RsbSbpHandler();
    bool sendMessage(const Message &message) override;
    /// Polls the state of the refund until an answer is final or `duration` has passed; at least
    /// once. `duration` and `interval`, the time between the starts of two requests, are in
    /// milliseconds. True if the last answer says that the money is being returned.
    virtual bool pollRefundStatus(RestClient &client, const QUrl &url, const QJsonDocument &body,
                                  const RestClient::Headers &headers, int duration, int interval);

private:
    /// Decides after the answer to the refund request, or its failure.
    bool judgeRefund(const RestClient &client);
    /// Returns false: the bank has answered, and its code does not confirm the refund.
    bool keepByCode(const RestClient &client, int code);
};
