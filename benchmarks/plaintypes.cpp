// The service with simple forwarders plain1 to plain57 as its types, so that as many types as it
// really has can drain at once with the same kind of message.

#include "engine/basichandler.h"
#include "handlers/common/delivery.h"
#include "handlers/handlertable.h"

#include <log4qt/logger.h>

#include <deque>
#include <string>

namespace {

constexpr int typeCount = 57;

class PlainHandler : public BasicHandler
{
public:
    using BasicHandler::BasicHandler;

    bool sendMessage(const Message &message) override
    {
        logger()->info(QStringLiteral("Отправка сообщения %1"), message.id);
        return deliverRequest(*logger(), readRequest(message));
    }
};

} // namespace

std::span<const HandlerRow> handlerTable()
{
    static std::deque<std::u16string> names;
    static const std::vector<HandlerRow> rows = [] {
        std::vector<HandlerRow> plain;
        for (int number = 1; number <= typeCount; ++number) {
            names.push_back(u"plain" + QString::number(number).toStdU16String());
            plain.push_back(typedRow<PlainHandler>(names.back().c_str()));
        }
        return plain;
    }();
    return rows;
}
