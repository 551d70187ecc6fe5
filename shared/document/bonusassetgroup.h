#pragma once

#include <QDateTime>
#include <QString>

/// The bonuses that are credited together and expire together. A null date sets no bound.
struct BonusAssetGroup
{
    QString id = QStringLiteral("0");
    QDateTime beginDate;
    QDateTime endDate;
    int weight = 0;
};
