#include "handlers/payment/processinghandler.h"

#include "handlers/common/messagevalue.h"
#include "shared/core/basicexception.h"
#include "shared/core/singleton.h"
#include "shared/document/paymentprocessingfactory.h"
#include "shared/document/valutcollection.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

ProcessingHandler::ProcessingHandler()
    : BasicHandler(u"processing"_s)
{
    Singleton<PaymentProcessingFactory>::instance()->prepare();
}

bool ProcessingHandler::sendMessage(const Message &message)
{
    logger()->info(u"Обработка сообщения %1"_s, message.id);
    const int valutCode = messageValue<int>(message, u"valutCode"_s);
    const auto processing = findProcessing(valutCode);
    if (!processing) {
        logger()->error(u"Не найден процессинг с кодом валюты %1"_s, valutCode);
        return keep(u"не настроен процессинг для валюты %1"_s.arg(valutCode),
                    http::FailureKind::Request);
    }
    return processing->process(message.body);
}

std::shared_ptr<PaymentProcessing> ProcessingHandler::findProcessing(int valutCode)
{
    try {
        const Valut valut = Singleton<ValutCollection>::instance()->getByCode(valutCode);
        return Singleton<PaymentProcessingFactory>::instance()->getProcessing(valut);
    } catch (const BasicException &exception) {
        logger()->error(u"Критическая ошибка: %1"_s, exception.tr().ru());
        return nullptr;
    }
}
