#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariant>

/// A loyalty card on a document of the till. Knows which of its fields were set, so that saving it
/// leaves the others as they are.
class DocumentCardRecord
{
public:
    DocumentCardRecord() = default;
    /// A record as it was read: none of its fields counts as set.
    DocumentCardRecord(int id, const QString &number, const QString &operationId,
                       const QVariant &operationInfo);

    /// The identifier of the record, as a number or in decimal.
    void setId(const QVariant &id);
    QVariant getId() const;
    /// The number of the card.
    void setNumber(const QVariant &number);
    QVariant getNumber() const;
    /// The operation's name at the loyalty service, such as a transaction or a basket.
    void setOperationId(const QString &operationId);
    QString getOperationId() const;
    /// What is to be remembered of the operation: a map, or null for nothing.
    void setOperationInfo(const QVariant &operationInfo);
    void setOperationInfo(const QJsonObject &operationInfo);
    QVariant getOperationInfo() const;

    bool isNumberSet() const { return number.isSet; }
    bool isOperationIdSet() const { return operationId.isSet; }
    bool isOperationInfoSet() const { return operationInfo.isSet; }

private:
    template <typename T>
    struct Field
    {
        T value = T();
        bool isSet = false;
    };

    QVariant id;
    Field<QVariant> number;
    Field<QString> operationId;
    Field<QVariant> operationInfo;
};
