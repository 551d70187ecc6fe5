#pragma once

#include "engine/basichandler.h"

/// Delivers `parcellocker` messages: the cell of a parcel is opened by one POST. The service
/// answers `{"opened": true}`; `{"opened": false, "retry": false}` says that the cell is empty
/// already.
class ParcelLockerHandler : public BasicHandler
{
public:
    ParcelLockerHandler();
    bool sendMessage(const Message &message) override;
};
