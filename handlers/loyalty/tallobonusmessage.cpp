#include "handlers/loyalty/tallobonusmessage.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"

using namespace Qt::StringLiterals;

namespace {

BonusCard cardOf(const Message &message)
{
    BonusCard card;
    card.number = messageValue<QString>(message, u"cardNumber"_s);
    const auto map = messageValue<QVariantMap>(message, u"card"_s);
    if (!map.isEmpty())
        card.number = map.value(u"cardNumber"_s).toString();
    card.amount = messageValue<QString>(message, u"amount"_s).toDouble();
    return card;
}

SessionInfo sessionInfoOf(const Message &message)
{
    SessionInfo info(messageValue<QVariantMap>(message, u"additionalInfo"_s));
    info.setSessionId(messageValue<QString>(message, u"sessionId"_s));
    return info;
}

/// The beginning of a day in the format "yyyy-MM-dd".
QDateTime dayOf(const QVariant &text)
{
    return QDate::fromString(text.toString(), u"yyyy-MM-dd"_s).startOfDay();
}

QDateTime momentOf(const QVariant &seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds.toLongLong());
}

BonusAssetGroup assetGroupOf(const Message &message)
{
    BonusAssetGroup group;
    const auto map = messageValue<QVariantMap>(message, u"assetGroup"_s);
    if (map.isEmpty())
        return group;
    group.id = map.value(u"id"_s).toString();
    group.beginDate = dayOf(map.value(u"assetBeginDate"_s));
    group.endDate = dayOf(map.value(u"assetEndDate"_s));
    group.weight = map.value(u"weight"_s).toInt();
    // The same values under the bonus server's names.
    if (map.contains(u"groupId"_s))
        group.id = map.value(u"groupId"_s).toString();
    if (map.contains(u"data_beg"_s))
        group.beginDate = momentOf(map.value(u"data_beg"_s));
    if (map.contains(u"data_end"_s))
        group.endDate = momentOf(map.value(u"data_end"_s));
    return group;
}

int cardStatusOf(const Message &message)
{
    static constexpr KnownWord<int> statuses[] = {
        {u"EARN_PAY", 0},  {u"NO_OPERATION", 1}, {u"WITHDRAWAL", 2},
        {u"EARN_ONLY", 3}, {u"PAY_ONLY", 4},
    };
    constexpr int unknown = -1;
    return meaningOf(messageValue<QString>(message, u"cardStatus"_s, u"EARN_PAY"_s), statuses,
                     unknown);
}

} // namespace

TalloBonusMessage::TalloBonusMessage(const Message &message)
    : card(cardOf(message))
    , additionalCardStatus(messageValue<QString>(message, u"additionalCardStatus"_s))
    , parentSessionId(messageValue<QString>(message, u"parentSessionId"_s))
    , sessionId(messageValue<QString>(message, u"sessionId"_s))
    , terminalId(messageValue<QString>(message, u"terminalId"_s))
    , hosts(messageValue<QStringList>(message, u"hosts"_s))
    , sessionInfo(sessionInfoOf(message))
    , assetGroup(assetGroupOf(message))
    , cardStatus(cardStatusOf(message))
    , nonConfirm(messageValue<bool>(message, u"nonConfirm"_s))
    , fullReturn(messageValue<bool>(message, u"fullReturn"_s))
    , user(messageValue<QString>(message, u"user"_s))
    , password(messageValue<QString>(message, u"password"_s))
    , reason(messageValue<QString>(message, u"reason"_s))
    , source(messageValue<QString>(message, u"source"_s))
    , checkAssets(messageValue<bool>(message, u"checkAssets"_s))
    , endPoint(messageValue<QString>(message, u"endPoint"_s))
{
}
