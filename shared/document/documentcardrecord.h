#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariant>

/// A loyalty card on a document of the till. Records which of its fields were set, so that saving
/// it changes only these.
class DocumentCardRecord
{
public:
    DocumentCardRecord() = default;
    /// A record as read from the database: no field counts as set.
    DocumentCardRecord(int id, const QString &number, const QString &operationId,
                       const QVariant &operationInfo);

    /// The record's id, as a number or as decimal text.
    void setId(const QVariant &id);
    QVariant getId() const;
    /// The number of the card.
    void setNumber(const QVariant &number);
    QVariant getNumber() const;
    /// The id of the operation at the loyalty service, such as a transaction or a basket.
    void setOperationId(const QString &operationId);
    QString getOperationId() const;
    /// Data of the operation to store: a map, or null for none.
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
