#pragma once

#include "shared/document/documentimpact.h"
#include "shared/document/goodsitem.h"

#include <QDateTime>
#include <QList>
#include <QString>

/// A document of the till, such as a receipt, reduced to what the clients of loyalty services read.
class Document
{
public:
    virtual ~Document();

    /// The number of the order that the document belongs to. Document types that store it elsewhere
    /// override this.
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
