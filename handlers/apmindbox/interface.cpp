#include "handlers/apmindbox/interface.h"

#include "handlers/common/restcalls.h"
#include "shared/core/config.h"
#include "shared/core/currenttime.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/mockfactory.h"
#include "shared/core/singleton.h"

#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace apmindbox {

namespace {

constexpr int defaultTimeoutSeconds = 5;
constexpr qint64 msInSecond = 1000;

QJsonObject customerWith(const QString &key, const QString &value)
{
    return {{u"customer"_s, QJsonObject{{key, value}}}};
}

QJsonObject customerBody(const ApMindboxCustomerData &data)
{
    QJsonObject customer{
        {u"mobilePhone"_s, data.mobilePhone},
        {u"sex"_s, data.sex == 0 ? u"male"_s : u"female"_s},
        {u"firstName"_s, data.firstName},
    };
    if (data.birthDate.isValid())
        customer.insert(u"birthDate"_s, data.birthDate.toString(u"dd.MM.yyyy"_s));
    if (!data.email.isEmpty())
        customer.insert(u"email"_s, data.email);
    return {{u"customer"_s, customer}};
}

void enqueue(const QString &method, const QJsonObject &payload)
{
    Singleton<DBQueueBroker>::instance()->enqueue(
        u"apmindbox"_s, {{u"method"_s, method}, {u"payload"_s, payload}}, QString());
}

void addQueryItem(QUrlQuery &query, const QString &key, const QString &value)
{
    // QUrlQuery takes a plus or a per cent sign for something that is encoded already, and leaves the
    // equals sign out before a null text.
    query.addQueryItem(key, value.isEmpty() ? u""_s
                                            : QString::fromLatin1(QUrl::toPercentEncoding(value)));
}

} // namespace

Interface::Interface()
    : logger(Log4Qt::LogManager::logger(u"apmindbox"_s))
{
    Config &config = *Singleton<Config>::instance();
    endpoint = config.getString(u"ApMindbox:endpoint"_s, QString());
    secretKey = config.getString(u"ApMindbox:secretKey"_s, QString());
    pointOfContact = config.getString(u"ApMindbox:pointOfContact"_s, u"Offline"_s);
    brand = config.getString(u"ApMindbox:brand"_s, u"Trekraip"_s);
    url =
        QUrl(config.getString(u"ApMindbox:url"_s, u"https://api.mindbox.ru/v3/operations/sync"_s));
    logger->info(u" адрес сервера: %1"_s, url.toDisplayString());
    client = createClient(*logger);
    client->setTimeoutMs(config.getInt(u"ApMindbox:timeout"_s, defaultTimeoutSeconds) * msInSecond);
}

Interface::~Interface() = default;

GetCustomerResult Interface::getCustomer(const QString &mobilePhone)
{
    logger->info(u"Получение данных клиента"_s);
    return GetCustomerResult(
        execute(u"Offline.GetCustomer"_s, customerWith(u"mobilePhone"_s, mobilePhone), QString()));
}

RegisterCustomerResult Interface::registerCustomer(const ApMindboxCustomerData &customer)
{
    logger->info(u"Регистрация клиента"_s);
    return RegisterCustomerResult(
        execute(u"Offline.RegisterCustomer"_s, customerBody(customer), QString()));
}

OperationResult Interface::editCustomer(const ApMindboxCustomerData &customer)
{
    logger->info(u"Изменение данных клиента"_s);
    return execute(u"Offline.EditCustomer"_s, customerBody(customer), QString());
}

OperationResult Interface::resendMobilePhoneConfirmationCode(const QString &mobilePhone)
{
    logger->info(u"Отправка кода для подтверждения номера '%1'"_s, mobilePhone);
    return execute(u"Offline.ResendMobilePhoneConfirmationCode"_s,
                   customerWith(u"mobilePhone"_s, mobilePhone), QString());
}

OperationResult Interface::confirmMobilePhone(const QString &mobilePhone, const QString &code)
{
    logger->info(u"Подтверждение телефона '%1' кодом '%2'"_s.arg(mobilePhone, code));
    QJsonObject body = customerWith(u"mobilePhone"_s, mobilePhone);
    body.insert(u"smsConfirmation"_s, QJsonObject{{u"code"_s, code}});
    return execute(u"Offline.ConfirmMobilePhone"_s, body, QString());
}

OperationResult Interface::checkMobilePhoneAuthorizationCode(const QString &mobilePhone,
                                                             const QString &code)
{
    logger->info(u"Проверка кода авторизации для номера '%1'"_s, mobilePhone);
    QJsonObject body = customerWith(u"mobilePhone"_s, mobilePhone);
    // The platform's own spelling.
    body.insert(u"authentificationCode"_s, code);
    return execute(u"Offline.CheckMobilePhoneAuthorizationCode"_s, body, QString());
}

OperationResult Interface::confirmEmail(const QString &email)
{
    logger->info(u"Подтверждение электронной почты"_s);
    return execute(u"Offline.EmailConfirmationLetter"_s, customerWith(u"email"_s, email),
                   QString());
}

CreateOrderResult Interface::createAuthorizedOrder(const QJsonObject &order, bool fromQueue)
{
    logger->info(u"Создание заказа авторизованного клиента"_s);
    const CreateOrderResult result(execute(u"Offline.CreateAuthorizedOrder"_s, order, QString()));
    if (!fromQueue && result.noConnection) {
        logger->info(u"Отправка сообщения создания заказа в очередь"_s);
        QJsonObject payload = order;
        const QDateTime now = MockFactory<CurrentTime>::create()->currentDateTime().toUTC();
        payload.insert(u"executionDateTimeUtc"_s, now.toString(u"dd.MM.yyyy HH:mm:ss"_s));
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
    const QString redirected = Singleton<Config>::instance()->getString(
        u"ApMindbox.Redirect:%1"_s.arg(operationName), operationName);
    // The redirected name is for the log alone; the platform is asked by the operation's own one.
    logger->debug(u" выполнение метода '%1'%2"_s.arg(
        operationName, redirected == operationName ? QString() : u" -> '%1'"_s.arg(redirected)));

    QUrlQuery query;
    addQueryItem(query, u"endpointId"_s, endpoint);
    addQueryItem(query, u"operation"_s, operationName);
    if (!transactionId.isEmpty())
        addQueryItem(query, u"transactionId"_s, transactionId);
    // Whatever is set in an address that cannot be read makes a readable one of what is left of it, which
    // may be another server's.
    if (url.isValid())
        url.setQuery(query);

    QJsonObject request = body;
    request.insert(u"pointOfContact"_s, pointOfContact);
    client->setCompactLogs(false);
    client->post(url, QJsonDocument(request),
                 {{u"Content-Type"_s, u"application/json; charset=utf-8"_s},
                  {u"Accept"_s, u"application/json"_s},
                  {u"Authorization"_s, u"Mindbox secretKey=\"%1\""_s.arg(secretKey)}});
    return OperationResult(client->response(), *logger);
}

} // namespace apmindbox
