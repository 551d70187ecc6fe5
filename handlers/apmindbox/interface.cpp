#include "handlers/apmindbox/interface.h"

#include "handlers/apmindbox/settings.h"
#include "handlers/common/delivery.h"
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

namespace apmindbox {

namespace {

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

QJsonObject customerWithData(const ApMindboxCustomerData &data)
{
    QJsonObject customer = customerWithPhone(data.mobilePhone);
    customer.insert(u"sex"_s, data.sex == 0 ? u"male"_s : u"female"_s);
    customer.insert(u"firstName"_s, data.firstName);
    if (data.birthDate.isValid())
        customer.insert(u"birthDate"_s, data.birthDate.toString(u"dd.MM.yyyy"_s));
    if (!data.email.isEmpty())
        customer.insert(u"email"_s, data.email);
    return customer;
}

void enqueue(const QString &method, const QJsonObject &payload)
{
    const QJsonObject message{{u"method"_s, method}, {u"payload"_s, payload}};
    Singleton<DBQueueBroker>::instance()->enqueue(u"apmindbox"_s, message, QString());
}

} // namespace

Interface::Interface()
    : logger(Log4Qt::LogManager::logger(u"apmindbox"_s))
{
    endpoint = settings::apmindbox::endpoint.value();
    secretKey = settings::apmindbox::secretKey.value();
    pointOfContact = settings::apmindbox::pointOfContact.value();
    brand = settings::apmindbox::brand.value();
    url = QUrl(settings::apmindbox::url.value());
    const std::chrono::milliseconds timeout = settings::apmindbox::timeout.value();
    logger->info(u" адрес сервера: %1"_s, shownAddress(url));
    client = createClient(*logger);
    client->setTimeoutMs(timeout.count());
}

Interface::~Interface() = default;

GetCustomerResult Interface::getCustomer(const QString &mobilePhone)
{
    logger->info(u"Получение данных клиента"_s);
    return GetCustomerResult(execute(u"Offline.GetCustomer"_s,
                                     {{u"customer"_s, customerWithPhone(mobilePhone)}}, QString()));
}

RegisterCustomerResult Interface::registerCustomer(const ApMindboxCustomerData &customer)
{
    logger->info(u"Регистрация клиента"_s);
    return RegisterCustomerResult(execute(
        u"Offline.RegisterCustomer"_s, {{u"customer"_s, customerWithData(customer)}}, QString()));
}

OperationResult Interface::editCustomer(const ApMindboxCustomerData &customer)
{
    logger->info(u"Изменение данных клиента"_s);
    return execute(u"Offline.EditCustomer"_s, {{u"customer"_s, customerWithData(customer)}},
                   QString());
}

OperationResult Interface::resendMobilePhoneConfirmationCode(const QString &mobilePhone)
{
    logger->info(u"Отправка кода для подтверждения номера '%1'"_s, mobilePhone);
    return execute(u"Offline.ResendMobilePhoneConfirmationCode"_s,
                   {{u"customer"_s, customerWithPhone(mobilePhone)}}, QString());
}

OperationResult Interface::confirmMobilePhone(const QString &mobilePhone, const QString &code)
{
    logger->info(u"Подтверждение телефона '%1' кодом '%2'"_s.arg(mobilePhone, code));
    return execute(u"Offline.ConfirmMobilePhone"_s,
                   {{u"customer"_s, customerWithPhone(mobilePhone)},
                    {u"smsConfirmation"_s, QJsonObject{{u"code"_s, code}}}},
                   QString());
}

OperationResult Interface::checkMobilePhoneAuthorizationCode(const QString &mobilePhone,
                                                             const QString &code)
{
    logger->info(u"Проверка кода авторизации для номера '%1'"_s, mobilePhone);
    // The misspelled key is the platform's.
    return execute(
        u"Offline.CheckMobilePhoneAuthorizationCode"_s,
        {{u"customer"_s, customerWithPhone(mobilePhone)}, {u"authentificationCode"_s, code}},
        QString());
}

OperationResult Interface::confirmEmail(const QString &email)
{
    logger->info(u"Подтверждение электронной почты"_s);
    return execute(u"Offline.EmailConfirmationLetter"_s,
                   {{u"customer"_s, QJsonObject{{u"email"_s, email}}}}, QString());
}

CreateOrderResult Interface::createAuthorizedOrder(const QJsonObject &order, bool fromQueue)
{
    logger->info(u"Создание заказа авторизованного клиента"_s);
    const CreateOrderResult result(execute(u"Offline.CreateAuthorizedOrder"_s, order, QString()));
    if (!fromQueue && result.noConnection) {
        logger->info(u"Отправка сообщения создания заказа в очередь"_s);
        QJsonObject payload = order;
        payload.insert(u"executionDateTimeUtc"_s, executionTime());
        enqueue(u"create"_s, payload);
    }
    return result;
}

OperationResult Interface::changeOrderStatus(const QJsonObject &body, bool sendNow)
{
    if (!sendNow) {
        logger->info(u"Отправка сообщения подтверждения заказа в очередь"_s);
        enqueue(u"change"_s, body);
        return {};
    }
    logger->info(u"Изменение статуса заказа"_s);
    return execute(u"Offline.ChangeStatus"_s, body, QString());
}

OperationResult Interface::execute(const QString &operationName, const QJsonObject &body,
                                   const QString &transactionId)
{
    const QString redirected = settings::apmindbox::redirect.value(operationName, operationName);
    // The redirected name is only logged; the request contains the operation's own name.
    logger->debug(u" выполнение метода '%1'%2"_s.arg(
        operationName, redirected == operationName ? QString() : u" -> '%1'"_s.arg(redirected)));

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

} // namespace apmindbox
