#pragma once

#include "engine/basichandler.h"

/// Delivers `questiontocashier` messages: the prepared bytes, in one POST. The user's name is sent
/// in the address and, in the service's own form, in a header.
class QuestionToCashierHandler : public BasicHandler
{
public:
    QuestionToCashierHandler();
    bool sendMessage(const Message &message) override;
};
