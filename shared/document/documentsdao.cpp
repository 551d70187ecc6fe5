#include "shared/document/documentsdao.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasevalues.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"documentsdao"_s);
}

/// Runs one statement with `values` for its placeholders.
QSqlQuery run(const QString &statement, const QVariantList &values, const QString &what)
{
    QSqlQuery query(Singleton<ConnectionFactory>::instance()->getConnection());
    bool isDone = query.prepare(statement);
    if (isDone) {
        for (const QVariant &value : values)
            query.addBindValue(value);
        isDone = query.exec();
    }
    if (!isDone)
        throw BasicException(
            u"%1: %2"_s.arg(what, databaseErrorText(query.lastError(), query.lastQuery())));
    return query;
}

/// As run(), for a statement that writes.
QSqlQuery write(const QString &statement, const QVariantList &values, const QString &what)
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const WriteGate::Turn turn = WriteGate::enter(factory->gateOf(factory->getConnection()));
    return run(statement, values, what);
}

/// Not null, because the columns are NOT NULL.
QString textOf(const QString &text)
{
    return text.isNull() ? u""_s : text;
}

QString jsonOf(const QVariant &operationInfo)
{
    const QVariantMap map = operationInfo.toMap();
    if (map.isEmpty())
        return u""_s;
    const QJsonDocument document(QJsonObject::fromVariantMap(map));
    return QString::fromUtf8(document.toJson(QJsonDocument::Compact));
}

QVariant operationInfoOf(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    return document.isObject() ? QVariant(document.object().toVariantMap()) : QVariant();
}

} // namespace

DocumentsDao::~DocumentsDao() = default;

void DocumentsDao::updateCard(const DocumentCardRecord &card)
{
    bool isNumber = false;
    const int id = card.getId().toInt(&isNumber);
    const QString what =
        u"Не удалось сохранить карту документа '%1'"_s.arg(card.getId().toString());
    const auto logMissing = [&card] {
        logger()->warn(u"Карта документа '%1' не найдена, изменения не сохранены"_s,
                       card.getId().toString());
    };
    if (!isNumber)
        return logMissing();

    QStringList columns;
    QVariantList values;
    if (card.isNumberSet()) {
        columns.append(u"cardnumber = ?"_s);
        values.append(textOf(card.getNumber().toString()));
    }
    if (card.isOperationIdSet()) {
        columns.append(u"operationid = ?"_s);
        values.append(textOf(card.getOperationId()));
    }
    if (card.isOperationInfoSet()) {
        columns.append(u"operationinfo = ?"_s);
        values.append(jsonOf(card.getOperationInfo()));
    }
    if (columns.isEmpty())
        return;

    const QString statement =
        u"UPDATE documentcard SET "_s + columns.join(u", "_s) + u" WHERE id = ?"_s;
    const QSqlQuery update = write(statement, values + QVariantList{id}, what);
    // A server does not count a row that already had these values.
    if (update.numRowsAffected() < 1
        && !run(u"SELECT 1 FROM documentcard WHERE id = ?"_s, {id}, what).next())
        logMissing();
}

int DocumentsDao::findCardId(const QString &chequeNumber, const QString &cardNumber)
{
    QSqlQuery query =
        run(u"SELECT id FROM documentcard WHERE chequenumber = ? AND cardnumber = ? "
            "ORDER BY id DESC LIMIT 1"_s,
            {textOf(chequeNumber), textOf(cardNumber)},
            u"Не удалось найти карту '%1' документа '%2'"_s.arg(cardNumber, chequeNumber));
    return query.next() ? query.value(0).toInt() : 0;
}

std::shared_ptr<DocumentCardRecord> DocumentsDao::readCard(int id, bool withOperationInfo)
{
    const QString columns = withOperationInfo ? u"cardnumber, operationid, operationinfo"_s
                                              : u"cardnumber, operationid"_s;
    QSqlQuery query = run(u"SELECT %1 FROM documentcard WHERE id = ?"_s.arg(columns), {id},
                          u"Не удалось прочитать карту документа '%1'"_s.arg(id));
    if (!query.next())
        return nullptr;
    return std::make_shared<DocumentCardRecord>(
        id, query.value(0).toString(), query.value(1).toString(),
        withOperationInfo ? operationInfoOf(query.value(2).toByteArray()) : QVariant());
}
