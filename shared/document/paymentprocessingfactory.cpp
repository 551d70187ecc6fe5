#include "shared/document/paymentprocessingfactory.h"

#include "shared/core/basicexception.h"
#include "shared/document/httppaymentprocessing.h"
#include "shared/document/processingsettings.h"

using namespace Qt::StringLiterals;

namespace {

bool isHttpAddress(const QUrl &url)
{
    return url.isValid() && !url.host().isEmpty()
           && (url.scheme() == u"http" || url.scheme() == u"https");
}

/// Null if no address is configured.
std::shared_ptr<PaymentProcessing> processingFromSettings(const Valut &valut)
{
    const QString code = QString::number(valut.getCode());
    const QString address = settings::processing.value(code, QString());
    if (address.isEmpty())
        return nullptr;
    const QUrl url(address);
    if (!isHttpAddress(url)) {
        // The address is not shown, because it may contain a password.
        throw BasicException(
            u"Параметр %1 не является адресом http или https, исправьте настройки"_s.arg(
                settings::processing.key(code)));
    }
    return std::make_shared<HttpPaymentProcessing>(url);
}

} // namespace

void PaymentProcessingFactory::prepare()
{
    processings.lock()->clear();
}

PaymentProcessingFactory::~PaymentProcessingFactory() = default;

std::shared_ptr<PaymentProcessing> PaymentProcessingFactory::getProcessing(const Valut &valut)
{
    if (valut.isEmpty())
        return nullptr;
    const auto table = processings.lock();
    std::shared_ptr<PaymentProcessing> known = table->value(valut.getCode());
    if (known)
        return known;
    const auto fresh = processingFromSettings(valut);
    if (fresh)
        table->insert(valut.getCode(), fresh);
    return fresh;
}
