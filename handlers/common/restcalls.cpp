#include "handlers/common/restcalls.h"

#include "shared/core/mockfactory.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger)
{
    auto client = MockFactory<RestClient>::create();
    client->setLogger(&logger);
    return client;
}

void logSendError(Log4Qt::Logger &logger, const tr::Tr &errorText)
{
    logger.error(u"Ошибка при отправке сообщения: %1"_s, errorText.ru());
}
