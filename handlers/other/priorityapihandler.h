#pragma once

#include "engine/basichandler.h"

/// Delivers `priorityapi` messages: a prepared text or a JSON object in one POST. The member `code`
/// of the answer says whether it was accepted.
class PriorityApiHandler : public BasicHandler
{
public:
    PriorityApiHandler();
    bool sendMessage(const Message &message) override;
};
