#include "shared/document/httppaymentprocessing.h"

#include "shared/core/mockfactory.h"
#include "shared/net/restclient.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

HttpPaymentProcessing::HttpPaymentProcessing(const QUrl &url)
    : url(url)
{
}

bool HttpPaymentProcessing::process(const QVariantMap &fields)
{
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"paymentprocessing"_s);
    const auto client = MockFactory<RestClient>::create();
    client->setLogger(logger);
    client->setTimeout(fields.value(u"timeout"_s).toInt());
    client->post(url, QJsonDocument(QJsonObject::fromVariantMap(fields)), {});
    if (client->errorCode() > 0) {
        logger->error(u"Ошибка при обращении к процессингу: %1"_s, client->errorText().ru());
        return false;
    }
    if (!client->responseJson().object().value(u"success"_s).toBool()) {
        logger->error(u"Процессинг не подтвердил выполнение операции"_s);
        return false;
    }
    return true;
}
