#pragma once

#include "engine/basichandler.h"

/// Delivers `winelabcertificate` messages: the prepared bytes, in one POST. Only a reply whose
/// status is `create` finishes the message.
class WinelabCertificateHandler : public BasicHandler
{
public:
    WinelabCertificateHandler();
    bool sendMessage(const Message &message) override;
};
