#include "shared/core/dbqueuebroker.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasevalues.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"

#include <QJsonDocument>
#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

DBQueueBroker::~DBQueueBroker() = default;

void DBQueueBroker::enqueue(const QString &type, const QJsonObject &message,
                            const QString &cardNumber)
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const QSqlDatabase database = factory->getConnection();
    QSqlQuery query(database);
    const bool isPrepared =
        query.prepare(u"INSERT INTO message (type, body, cardnumber, statuscode) "
                      "VALUES (:type, :body, :cardNumber, '')"_s);
    query.bindValue(u":type"_s, type);
    query.bindValue(u":body"_s,
                    QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    query.bindValue(u":cardNumber"_s, cardNumber.isNull() ? u""_s : cardNumber);
    const WriteGate::Turn turn = WriteGate::enter(factory->gateOf(database));
    // After a failed prepare() the query has the reason; exec() would replace it.
    if (!isPrepared || !query.exec())
        throw BasicException(u"Не удалось записать сообщение типа '%1' в очередь: %2"_s.arg(
            type, databaseErrorText(query.lastError(), query.lastQuery())));
}
