#include "handlers/forwarding/abmloyaltyhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .opening = Opening::Plain,
    .verb = Verb::PutOrPost,
};

} // namespace

AbmLoyaltyHandler::AbmLoyaltyHandler()
    : BasicHandler(u"abmloyalty"_s)
{
}

bool AbmLoyaltyHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
