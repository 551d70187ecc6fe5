#pragma once

#include "shared/core/tr.h"
#include "shared/net/restclient.h"

#include <memory>

namespace Log4Qt {
class Logger;
}

/// A client for one delivery, which logs its exchanges on `logger`.
std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger);

/// The line that most handlers log when a request has failed.
void logSendError(Log4Qt::Logger &logger, const tr::Tr &errorText);
