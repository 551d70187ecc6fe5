#pragma once

#include <QDateTime>
#include <QString>

/// Bonuses that are credited together and expire together. A null date means no limit.
struct BonusAssetGroup
{
    QString id = QStringLiteral("0");
    QDateTime beginDate;
    QDateTime endDate;
    int weight = 0;
};
