#include "handlers/mindbox/interface.h"

#include "handlers/common/delivery.h"
#include "handlers/mindbox/settings.h"
#include "shared/core/currenttime.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/mockfactory.h"
#include "shared/core/singleton.h"
#include "shared/net/addressfault.h"
#include "shared/net/restclient.h"
#include "shared/net/urlquery.h"

#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QJsonDocument>

#include <chrono>

using namespace Qt::StringLiterals;

namespace mindbox {

namespace {

constexpr std::chrono::seconds resendInterval{31};

QDateTime now()
{
    return MockFactory<CurrentTime>::create()->currentDateTime();
}

/// The current time in the platform's format, for an order that is delivered later.
QString executionTime()
{
    return now().toUTC().toString(u"dd.MM.yyyy HH:mm:ss"_s);
}

QJsonObject customerWithPhone(const QString &mobilePhone)
{
    return {{u"mobilePhone"_s, mobilePhone}};
}

QJsonObject customerWithIds(const QString &mindboxId, const QString &mobilePhone)
{
    return {{u"ids"_s, QJsonObject{{u"mindboxId"_s, mindboxId}}}, {u"mobilePhone"_s, mobilePhone}};
}

QJsonObject cardWithNumber(const QString &number)
{
    return {{u"ids"_s, QJsonObject{{u"number"_s, number}}}};
}

/// Unlike jsonValueByPath(), gives no id when a value on the way is not an object.
QString externalId(const QJsonObject &body)
{
    QJsonObject object = body;
    for (const QString &key : {u"order"_s, u"transaction"_s, u"ids"_s})
        object = object.value(key).toObject();
    return object.value(u"externalId"_s).toString();
}

void enqueue(const QString &method, const QJsonObject &payload,
             const QString &cardNumber = QString())
{
    QJsonObject message{{u"method"_s, method}, {u"payload"_s, payload}};
    if (!cardNumber.isEmpty())
        message.insert(u"cardNumber"_s, cardNumber);
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, message, QString());
}

} // namespace

Interface::Interface()
    : logger(Log4Qt::LogManager::logger(u"mindbox"_s))
{
    endpoint = settings::mindbox::endpoint.value();
    secretKey = settings::mindbox::secretKey.value();
    pointOfContact = settings::mindbox::pointOfContact.value();
    useIdempotencyKey = settings::mindbox::useIdempotencyKey.value();
    readOperationNames();
    url = QUrl(settings::mindbox::url.value());
    const std::chrono::milliseconds timeout = settings::mindbox::timeout.value();
    logger->info(u" адрес сервера: %1"_s, shownAddress(url));
    client = createClient(*logger);
    client->setTimeoutMs(timeout.count());
}

Interface::~Interface() = default;

OperationResult Interface::checkCustomer(const QString &identifier, bool byMobilePhone)
{
    const QJsonObject customer = byMobilePhone
                                     ? customerWithPhone(identifier)
                                     : QJsonObject{{u"discountCard"_s, cardWithNumber(identifier)}};
    return request(checkCustomerOperation, {{u"customer"_s, customer}}, QString());
}

OperationResult Interface::editCustomer(const MindboxCustomer &customer,
                                        const MindboxCustomer &changes)
{
    return request(editCustomerOperation,
                   {{u"customer"_s, customerWithIds(customer.mindboxId, changes.mobilePhone)}},
                   QString());
}

OperationResult Interface::sendMobilePhoneAuthorizationCode(const QString &mobilePhone)
{
    const QJsonObject body{{u"customer"_s, customerWithPhone(mobilePhone)}};
    const std::chrono::seconds sinceFirstCode(now().toSecsSinceEpoch() - authorizationCodeTime);
    if (mobilePhone == authorizationCodePhone) {
        if (sinceFirstCode < resendInterval) {
            OperationResult refused;
            refused.error_ = tr::Tr(u"Повторная отправка кода временно недоступна"_s);
            return refused;
        }
        logger->info(u"Повторная отправка кода подтверждения на номер %1"_s, mobilePhone);
        return request(resendMobilePhoneAuthorizationCodeOperation, body, QString());
    }
    logger->info(u"Отправка кода подтверждения на номер %1"_s, mobilePhone);
    // Stored before the request: even if the reply is lost, the code may have reached the customer.
    authorizationCodePhone = mobilePhone;
    authorizationCodeTime = static_cast<quint32>(now().toSecsSinceEpoch());
    return request(sendMobilePhoneAuthorizationCodeOperation, body, QString());
}

OperationResult Interface::checkMobilePhoneAuthorizationCode(const MindboxCustomer &customer,
                                                             const QString &code)
{
    // The misspelled key is the platform's.
    return request(checkMobilePhoneAuthorizationCodeOperation,
                   {{u"customer"_s, customerWithIds(customer.mindboxId, customer.mobilePhone)},
                    {u"authentificationCode"_s, code}},
                   QString());
}

OperationResult Interface::resendMobilePhoneAuthorizationCode(const QString &mobilePhone)
{
    return request(resendMobilePhoneAuthorizationCodeOperation,
                   {{u"customer"_s, customerWithPhone(mobilePhone)}}, QString());
}

OperationResult Interface::confirmMobilePhone(const MindboxCustomer &customer, const QString &code)
{
    return request(confirmMobilePhoneOperation,
                   {{u"customer"_s, customerWithIds(customer.mindboxId, customer.mobilePhone)},
                    {u"smsConfirmation"_s, QJsonObject{{u"code"_s, code}}}},
                   QString());
}

OperationResult Interface::registerCustomer(const QString &mobilePhone)
{
    return request(registerCustomerOperation, {{u"customer"_s, customerWithPhone(mobilePhone)}},
                   QString());
}

ActivateCardResult Interface::activateDiscountCard(const QString &mobilePhone,
                                                   const QString &cardNumber)
{
    return ActivateCardResult(request(activateDiscountCardOperation,
                                      {{u"customer"_s, customerWithPhone(mobilePhone)},
                                       {u"discountCard"_s, cardWithNumber(cardNumber)}},
                                      QString()));
}

ActivateCardResult Interface::activateVirtualDiscountCard(const QString &mobilePhone)
{
    return ActivateCardResult(request(activateVirtualDiscountCardOperation,
                                      {{u"customer"_s, customerWithPhone(mobilePhone)}},
                                      QString()));
}

ReplaceCardResult Interface::replaceCards(const QString &oldNumber, const QString &newNumber)
{
    return ReplaceCardResult(request(replaceCardsOperation,
                                     {{u"oldDiscountCard"_s, cardWithNumber(oldNumber)},
                                      {u"newDiscountCard"_s, cardWithNumber(newNumber)}},
                                     QString()));
}

PreorderResult Interface::anonymousPreorder(const QJsonObject &order)
{
    logger->info(u"Расчёт чека для анонимного клиента"_s);
    return PreorderResult(request(anonymousPreorderOperation, order, QString()));
}

PreorderResult Interface::authorizedPreorder(const QJsonObject &order)
{
    logger->info(u"Расчёт чека для авторизованного клиента"_s);
    return PreorderResult(request(authorizedPreorderOperation, order, QString()));
}

PreorderResult Interface::unauthorizedPreorder(const QJsonObject &order)
{
    logger->info(u"Расчёт чека для неавторизованного клиента"_s);
    return PreorderResult(request(unauthorizedPreorderOperation, order, QString()));
}

// The misspelling "дла" is kept: people search the tills' logs for it.

BeginResult Interface::beginAnonymousOrderTransaction(const QJsonObject &order)
{
    logger->info(u"Начало сохранения заказа дла анонимного клиента"_s);
    return beginOrderTransaction(beginAnonymousOrderTransactionOperation, order);
}

BeginResult Interface::beginAuthorizedOrderTransaction(const QJsonObject &order)
{
    logger->info(u"Начало сохранения заказа дла авторизованного клиента"_s);
    return beginOrderTransaction(beginAuthorizedOrderTransactionOperation, order);
}

BeginResult Interface::beginUnauthorizedOrderTransaction(const QJsonObject &order)
{
    logger->info(u"Начало сохранения заказа дла неавторизованного клиента"_s);
    return beginOrderTransaction(beginUnauthorizedOrderTransactionOperation, order);
}

RollbackResult Interface::rollbackOrderTransaction(const QJsonObject &body)
{
    logger->info(u"Отмена транзакции"_s);
    return RollbackResult(request(rollbackOrderTransactionOperation, body, QString()));
}

void Interface::queueRollback(const QJsonObject &body)
{
    enqueue(u"rollback"_s, body);
}

void Interface::queueSaveOfflineOrder(QJsonObject &body, const QString &cardNumber)
{
    logger->info(u"Отправка отложенной обработки чека в очередь"_s);
    body.insert(u"executionDateTimeUtc"_s, executionTime());
    enqueue(u"saveOfflineOrder"_s, body, cardNumber);
}

void Interface::queueCommit(const QJsonObject &body)
{
    logger->info(u"Отправка подтверждения транзакции в очередь"_s);
    enqueue(u"commit"_s, body);
}

ReturnResult Interface::returnOrder(const QJsonObject &body)
{
    logger->info(u"Возврат по чеку продажи"_s);
    return ReturnResult(request(returnOperation, body, QString()));
}

void Interface::resetAuthorizationCodeState()
{
    authorizationCodePhone.clear();
    authorizationCodeTime = 0;
}

OperationResult Interface::request(const QString &operationName, const QJsonObject &body,
                                   const QString &transactionId)
{
    QUrlQuery query;
    query.addQueryItem(u"endpointId"_s, http::queryValue(endpoint));
    query.addQueryItem(u"operation"_s, http::queryValue(operationName));
    if (!transactionId.isEmpty())
        query.addQueryItem(u"transactionId"_s, http::queryValue(transactionId));
    http::setQuery(url, query);

    QJsonObject content = body;
    content.insert(u"pointOfContact"_s, pointOfContact);
    client->setCompactLogs(false);
    client->post(url, QJsonDocument(content),
                 {{u"Content-Type"_s, u"application/json; charset=utf-8"_s},
                  {u"Accept"_s, u"application/json"_s},
                  {u"Authorization"_s, u"Mindbox secretKey=\"%1\""_s.arg(secretKey)}});
    return OperationResult(client->response(), *logger);
}

BeginResult Interface::beginOrderTransaction(const QString &operationName, const QJsonObject &order)
{
    const QString transactionId = useIdempotencyKey ? externalId(order) : QString();
    return BeginResult(request(operationName, order, transactionId));
}

OperationResult Interface::commitOrderTransaction(const QJsonObject &body)
{
    return request(commitOrderTransactionOperation, body, QString());
}

OperationResult Interface::saveOfflineOrder(const QJsonObject &body)
{
    logger->info(u"Отложенная обработка чека"_s);
    return request(saveOfflineOrderOperation, body, QString());
}

void Interface::readOperationNames()
{
    struct OperationName
    {
        QString Interface::*field;
        Setting<QString> setting;
    };
    // clang-format off
    static constexpr OperationName names[] = {
        {&Interface::sendMobilePhoneAuthorizationCodeOperation,   settings::mindbox::sendMobilePhoneAuthorizationCodeOperation},
        {&Interface::resendMobilePhoneAuthorizationCodeOperation, settings::mindbox::resendMobilePhoneAuthorizationCodeOperation},
        {&Interface::registerCustomerOperation,                   settings::mindbox::registerCustomerOperation},
        {&Interface::returnOperation,                             settings::mindbox::returnOperation},
        {&Interface::activateDiscountCardOperation,               settings::mindbox::activateDiscountCardOperation},
        {&Interface::activateVirtualDiscountCardOperation,        settings::mindbox::activateVirtualDiscountCardOperation},
        {&Interface::anonymousPreorderOperation,                  settings::mindbox::anonymousPreorderOperation},
        {&Interface::authorizedPreorderOperation,                 settings::mindbox::authorizedPreorderOperation},
        {&Interface::beginAnonymousOrderTransactionOperation,     settings::mindbox::beginAnonymousOrderTransactionOperation},
        {&Interface::beginAuthorizedOrderTransactionOperation,    settings::mindbox::beginAuthorizedOrderTransactionOperation},
        {&Interface::beginUnauthorizedOrderTransactionOperation,  settings::mindbox::beginUnauthorizedOrderTransactionOperation},
        {&Interface::checkCustomerOperation,                      settings::mindbox::checkCustomerOperation},
        {&Interface::checkMobilePhoneAuthorizationCodeOperation,  settings::mindbox::checkMobilePhoneAuthorizationCodeOperation},
        {&Interface::commitOrderTransactionOperation,             settings::mindbox::commitOrderTransactionOperation},
        {&Interface::confirmMobilePhoneOperation,                 settings::mindbox::confirmMobilePhoneOperation},
        {&Interface::editCustomerOperation,                       settings::mindbox::editCustomerOperation},
        {&Interface::replaceCardsOperation,                       settings::mindbox::replaceCardsOperation},
        {&Interface::rollbackOrderTransactionOperation,           settings::mindbox::rollbackOrderTransactionOperation},
        {&Interface::saveOfflineOrderOperation,                   settings::mindbox::saveOfflineOrderOperation},
        {&Interface::unauthorizedPreorderOperation,               settings::mindbox::unauthorizedPreorderOperation},
    };
    // clang-format on
    for (const OperationName &name : names)
        this->*name.field = name.setting.value();
}

} // namespace mindbox
