#pragma once

#include "engine/message.h"
#include "shared/net/restclient.h"

#include <memory>

namespace Log4Qt {
class Logger;
}

/// The line at the start of a delivery.
enum class Opening
{
    Plain,
    WithId,
    Silent,
};

enum class Verb
{
    Post,
    Put,
    /// PUT when the message's `method` says exactly so, otherwise POST.
    PutOrPost,
    /// As a whole request, with a JSON document for its body.
    WholePatch,
    WholePut,
};

/// What the request carries and how it is read from the message's `body`.
enum class Payload
{
    Bytes,
    Object,
    /// An object by way of its variant map.
    Map,
    Array,
    /// No content at all, whatever the message holds.
    EmptyDocument,
};

enum class Headers
{
    FromMessage,
    /// From the message, read as a JSON object.
    FromMessageObject,
    JsonContentType,
    Empty,
};

/// The line for a request that has failed.
enum class FailureLine
{
    SendError,
    /// At info level, about the request.
    RequestInfo,
    Silent,
};

/// The timeout of a delivery in seconds; what 0 and no timeout mean is RestClient's to say.
struct Timeout
{
    enum class Source
    {
        Message,
        Fixed,
        Unset,
    };

    Source source = Source::Message;
    /// The fixed timeout, or the one for a message that names none.
    int seconds = 0;

    static constexpr Timeout fromMessage(int defaultSeconds)
    {
        return {Source::Message, defaultSeconds};
    }
    static constexpr Timeout fixed(int seconds) { return {Source::Fixed, seconds}; }
    static constexpr Timeout unset() { return {Source::Unset, 0}; }
};

/// How a message type is forwarded: one request, made as the till has prepared it in the message.
/// Each member's default is what most types have.
struct Forwarding
{
    Opening opening = Opening::WithId;
    Verb verb = Verb::Post;
    Payload payload = Payload::Bytes;
    Headers headers = Headers::FromMessage;
    Timeout timeout = Timeout::fromMessage(0);
    FailureLine failureLine = FailureLine::SendError;
};

/// Makes the request and hands back the client, whose result is still to be judged.
std::shared_ptr<RestClient> makeRequest(const Message &message, Log4Qt::Logger &logger,
                                        const Forwarding &forwarding);

/// Makes the request and logs its failure. True when the exchange went through and its status says
/// success, whatever the reply holds.
bool forwardMessage(const Message &message, Log4Qt::Logger &logger, const Forwarding &forwarding);

/// Gives the client the message's timeout.
void applyTimeout(const Message &message, RestClient &client, const Timeout &timeout);
