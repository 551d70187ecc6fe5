#pragma once

#include "engine/basichandler.h"

/// Delivers `questiontocashier` messages: the prepared bytes, in one POST, with the user's name
/// both in the address and, in a form of the service's own, in a header.
class QuestionToCashierHandler : public BasicHandler
{
public:
    QuestionToCashierHandler();
    bool sendMessage(const Message &message) override;
};
