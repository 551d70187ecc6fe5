#pragma once

#include "shared/document/documentimpact.h"
#include "shared/document/goodsitem.h"

#include <QDateTime>
#include <QList>
#include <QString>

/// A document of the till, such as a receipt, as far as its clients of loyalty services read it.
class Document
{
public:
    virtual ~Document();

    /// The name of the order behind the document. A kind of document that keeps it elsewhere
    /// overrides this.
    virtual QString getOrderId() const;

    void setOrderId(const QString &id) { orderId = id; }
    void setImpacts(const QList<DocumentImpact> &newImpacts) { impacts = newImpacts; }
    QList<DocumentImpact> getImpacts() const { return impacts; }
    void setGoods(const QList<GoodsItem> &newGoods) { goods = newGoods; }
    QList<GoodsItem> getGoods() const { return goods; }
    /// When the document was opened.
    void setDateTime(const QDateTime &newDateTime) { dateTime = newDateTime; }
    QDateTime getDateTime() const { return dateTime; }

private:
    QString orderId;
    QList<DocumentImpact> impacts;
    QList<GoodsItem> goods;
    QDateTime dateTime;
};
