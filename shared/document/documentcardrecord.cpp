#include "shared/document/documentcardrecord.h"

DocumentCardRecord::DocumentCardRecord(int id, const QString &number, const QString &operationId,
                                       const QVariant &operationInfo)
    : id(id)
    , number{number}
    , operationId{operationId}
    , operationInfo{operationInfo}
{
}

void DocumentCardRecord::setId(const QVariant &newId)
{
    id = newId;
}

QVariant DocumentCardRecord::getId() const
{
    return id;
}

void DocumentCardRecord::setNumber(const QVariant &newNumber)
{
    number = {newNumber, true};
}

QVariant DocumentCardRecord::getNumber() const
{
    return number.value;
}

void DocumentCardRecord::setOperationId(const QString &newOperationId)
{
    operationId = {newOperationId, true};
}

QString DocumentCardRecord::getOperationId() const
{
    return operationId.value;
}

void DocumentCardRecord::setOperationInfo(const QVariant &newOperationInfo)
{
    operationInfo = {newOperationInfo, true};
}

void DocumentCardRecord::setOperationInfo(const QJsonObject &newOperationInfo)
{
    operationInfo = {newOperationInfo.toVariantMap(), true};
}

QVariant DocumentCardRecord::getOperationInfo() const
{
    return operationInfo.value;
}
