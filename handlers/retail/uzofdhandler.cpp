#include "handlers/retail/uzofdhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fixed(10),
};

} // namespace

UzOfdHandler::UzOfdHandler()
    : BasicHandler(u"uzofd"_s)
{
}

bool UzOfdHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const PreparedRequest request = readRequest(message, rules);
    const auto client = createClient(*logger(), request);
    const auto certificate = messageValue<QString>(message, u"certificatePath"_s);
    if (!certificate.isEmpty()) {
        client->setCertificatePath(certificate);
        client->setCertificatePassword(messageValue<QString>(message, u"certificatePassword"_s));
    }
    sendRequest(*client, request);
    return succeeded(*client, *logger());
}
