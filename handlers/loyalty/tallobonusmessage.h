#pragma once

#include "engine/message.h"
#include "shared/document/bonusassetgroup.h"
#include "shared/document/bonuscard.h"
#include "shared/document/sessioninfo.h"

#include <QString>
#include <QStringList>

/// The parameters of a bonus server operation in a message. A missing member keeps its default.
struct TalloBonusMessage
{
    TalloBonusMessage() = default;
    explicit TalloBonusMessage(const Message &message);

    BonusCard card;
    QString additionalCardStatus;
    QString parentSessionId;
    QString sessionId;
    QString terminalId;
    QStringList hosts;
    SessionInfo sessionInfo;
    BonusAssetGroup assetGroup;
    /// 0 EARN_PAY, 1 NO_OPERATION, 2 WITHDRAWAL, 3 EARN_ONLY, 4 PAY_ONLY, -1 for any other text.
    int cardStatus = 0;
    bool nonConfirm = false;
    bool fullReturn = false;
    QString user;
    QString password;
    QString reason;
    QString source;
    bool checkAssets = false;
    QString endPoint;
};
