#include "handlers/forwarding/cardlabhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .opening = Opening::Plain,
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fixed(10),
};

} // namespace

CardLabHandler::CardLabHandler()
    : BasicHandler(u"cardlab"_s)
{
}

bool CardLabHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
