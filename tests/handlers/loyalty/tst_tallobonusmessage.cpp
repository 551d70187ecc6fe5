#include "handlers/loyalty/tallobonusmessage.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

TalloBonusMessage read(const QByteArray &body)
{
    QJsonParseError error;
    Message message;
    message.body = QJsonDocument::fromJson(body, &error).object().toVariantMap();
    if (error.error != QJsonParseError::NoError)
        qFatal("%s: %s", body.constData(), qPrintable(error.errorString()));
    // The other columns of the row are not compared.
    message.cardNumber = u"column"_s;
    message.statusCode = u"column"_s;
    return TalloBonusMessage(message);
}

/// Every member, one line each.
QStringList linesOf(const TalloBonusMessage &message)
{
    const auto flag = [](bool value) {
        return value ? u"true"_s : u"false"_s;
    };
    return {
        u"card "_s + message.card.number + u' ' + QString::number(message.card.amount),
        u"additionalCardStatus "_s + message.additionalCardStatus,
        u"parentSessionId "_s + message.parentSessionId,
        u"sessionId "_s + message.sessionId,
        u"terminalId "_s + message.terminalId,
        u"hosts "_s + message.hosts.join(u'|'),
        u"sessionInfo "_s
            + QString::fromUtf8(
                QJsonDocument(message.sessionInfo.toJson()).toJson(QJsonDocument::Compact)),
        u"assetGroup %1 [%2] [%3] %4"_s.arg(message.assetGroup.id,
                                            message.assetGroup.beginDate.toString(Qt::ISODate),
                                            message.assetGroup.endDate.toString(Qt::ISODate),
                                            QString::number(message.assetGroup.weight)),
        u"cardStatus "_s + QString::number(message.cardStatus),
        u"nonConfirm "_s + flag(message.nonConfirm),
        u"fullReturn "_s + flag(message.fullReturn),
        u"user "_s + message.user,
        u"password "_s + message.password,
        u"reason "_s + message.reason,
        u"source "_s + message.source,
        u"checkAssets "_s + flag(message.checkAssets),
        u"endPoint "_s + message.endPoint,
    };
}

const QStringList defaultLines{
    u"card  0"_s,
    u"additionalCardStatus "_s,
    u"parentSessionId "_s,
    u"sessionId "_s,
    u"terminalId "_s,
    u"hosts "_s,
    uR"(sessionInfo {"sessionId":""})"_s,
    u"assetGroup 0 [] [] 0"_s,
    u"cardStatus 0"_s,
    u"nonConfirm false"_s,
    u"fullReturn false"_s,
    u"user "_s,
    u"password "_s,
    u"reason "_s,
    u"source "_s,
    u"checkAssets false"_s,
    u"endPoint "_s,
};

} // namespace

/// How a message describes an operation of the bonus server.
class TestTalloBonusMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void everyMember();
    void card_data();
    void card();
    void cardStatus_data();
    void cardStatus();
    void assetGroup_data();
    void assetGroup();
    void momentBeyondTheCalendar();
    void sessionInfo_data();
    void sessionInfo();
    void flags_data();
    void flags();
    void hosts_data();
    void hosts();
};

void TestTalloBonusMessage::defaults()
{
    QCOMPARE(linesOf(TalloBonusMessage()), defaultLines);
    QCOMPARE(linesOf(read("{}")), defaultLines);
    QCOMPARE(linesOf(read(R"({"unknown":1})")), defaultLines);
}

void TestTalloBonusMessage::everyMember()
{
    const TalloBonusMessage message = read(R"({
        "method": "add", "cardNumber": "2200", "amount": "12.5", "additionalCardStatus": "GOLD",
        "parentSessionId": "p-1", "sessionId": "s-1", "terminalId": "T-7",
        "hosts": ["bonus1:8080", "bonus2"], "additionalInfo": {"cheque": 42, "sessionId": "x"},
        "assetGroup": {"id": "9", "assetBeginDate": "2026-01-31", "assetEndDate": "2026-12-31",
                       "weight": 3},
        "cardStatus": "EARN_ONLY", "nonConfirm": true, "fullReturn": true, "user": "till",
        "password": "secret", "reason": "отмена", "source": "pos", "checkAssets": true,
        "endPoint": "shop"})");
    const QStringList expected{
        u"card 2200 12.5"_s,
        u"additionalCardStatus GOLD"_s,
        u"parentSessionId p-1"_s,
        u"sessionId s-1"_s,
        u"terminalId T-7"_s,
        u"hosts bonus1:8080|bonus2"_s,
        uR"(sessionInfo {"cheque":42,"sessionId":"s-1"})"_s,
        u"assetGroup 9 [2026-01-31T00:00:00] [2026-12-31T00:00:00] 3"_s,
        u"cardStatus 3"_s,
        u"nonConfirm true"_s,
        u"fullReturn true"_s,
        u"user till"_s,
        u"password secret"_s,
        u"reason отмена"_s,
        u"source pos"_s,
        u"checkAssets true"_s,
        u"endPoint shop"_s,
    };
    QCOMPARE(linesOf(message), expected);
}

void TestTalloBonusMessage::card_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("number");
    QTest::addColumn<double>("amount");

    // clang-format off
    QTest::newRow("number alone")          << R"({"cardNumber":"2200"})"_ba                                << u"2200"_s << 0.0;
    QTest::newRow("number as number")      << R"({"cardNumber":2200})"_ba                                  << u"2200"_s << 0.0;
    QTest::newRow("map replaces")          << R"({"cardNumber":"2200","card":{"cardNumber":"33"}})"_ba     << u"33"_s   << 0.0;
    QTest::newRow("map alone")             << R"({"card":{"cardNumber":"33"}})"_ba                         << u"33"_s   << 0.0;
    QTest::newRow("map without number")    << R"({"cardNumber":"2200","card":{"x":1}})"_ba                 << u""_s     << 0.0;
    QTest::newRow("map with another name") << R"({"cardNumber":"2200","card":{"number":"33"}})"_ba         << u""_s     << 0.0;
    QTest::newRow("empty map")             << R"({"cardNumber":"2200","card":{}})"_ba                      << u"2200"_s << 0.0;
    QTest::newRow("map null")              << R"({"cardNumber":"2200","card":null})"_ba                    << u"2200"_s << 0.0;
    QTest::newRow("map is a text")         << R"({"cardNumber":"2200","card":"33"})"_ba                    << u"2200"_s << 0.0;
    QTest::newRow("amount as text")        << R"({"amount":"12.5"})"_ba                                    << u""_s     << 12.5;
    QTest::newRow("amount as number")      << R"({"amount":12.5})"_ba                                      << u""_s     << 12.5;
    QTest::newRow("amount as integer")     << R"({"amount":12})"_ba                                        << u""_s     << 12.0;
    QTest::newRow("amount below 0")        << R"({"amount":"-0.01"})"_ba                                   << u""_s     << -0.01;
    QTest::newRow("amount with a comma")   << R"({"amount":"12,5"})"_ba                                    << u""_s     << 0.0;
    QTest::newRow("amount no number")      << R"({"amount":"abc"})"_ba                                     << u""_s     << 0.0;
    QTest::newRow("amount empty")          << R"({"amount":""})"_ba                                        << u""_s     << 0.0;
    QTest::newRow("amount an object")      << R"({"amount":{"a":1}})"_ba                                   << u""_s     << 0.0;
    QTest::newRow("amount of the map is not read") << R"({"card":{"cardNumber":"33","amount":"5"}})"_ba    << u"33"_s   << 0.0;
    QTest::newRow("amount beside the map") << R"({"card":{"cardNumber":"33"},"amount":"5"})"_ba            << u"33"_s   << 5.0;
    QTest::newRow("large amount")          << R"({"amount":"12345678901.25"})"_ba                          << u""_s     << 12345678901.25;
    // clang-format on
}

void TestTalloBonusMessage::card()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, number);
    QFETCH(double, amount);
    const TalloBonusMessage message = read(body);
    QCOMPARE(message.card.number, number);
    QCOMPARE(message.card.amount, amount);
}

void TestTalloBonusMessage::cardStatus_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("status");

    // clang-format off
    QTest::newRow("EARN_PAY")     << R"("EARN_PAY")"_ba     << 0;
    QTest::newRow("NO_OPERATION") << R"("NO_OPERATION")"_ba << 1;
    QTest::newRow("WITHDRAWAL")   << R"("WITHDRAWAL")"_ba   << 2;
    QTest::newRow("EARN_ONLY")    << R"("EARN_ONLY")"_ba    << 3;
    QTest::newRow("PAY_ONLY")     << R"("PAY_ONLY")"_ba     << 4;
    QTest::newRow("empty")        << R"("")"_ba             << -1;
    QTest::newRow("other case")   << R"("earn_pay")"_ba     << -1;
    QTest::newRow("with a blank") << R"("EARN_PAY ")"_ba    << -1;
    QTest::newRow("unknown")      << R"("GOLD")"_ba         << -1;
    QTest::newRow("number as text") << R"("2")"_ba          << -1;
    QTest::newRow("number")       << "2"_ba                 << -1;
    QTest::newRow("null")         << "null"_ba              << -1;
    QTest::newRow("object")       << "{}"_ba                << -1;
    // clang-format on
}

void TestTalloBonusMessage::cardStatus()
{
    QFETCH(QByteArray, json);
    QFETCH(int, status);
    QCOMPARE(read(R"({"cardStatus":)" + json + "}").cardStatus, status);
}

void TestTalloBonusMessage::assetGroup_data()
{
    QTest::addColumn<QByteArray>("map");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QDateTime>("begin");
    QTest::addColumn<QDateTime>("end");
    QTest::addColumn<int>("weight");

    const QDateTime none;
    const QDateTime january = QDate(2026, 1, 31).startOfDay();
    const QDateTime december = QDate(2026, 12, 31).startOfDay();
    const auto moment = [](qint64 seconds) {
        return QDateTime::fromSecsSinceEpoch(seconds);
    };
    // clang-format off
    QTest::newRow("empty map keeps the defaults") << "{}"_ba                          << u"0"_s << none    << none     << 0;
    QTest::newRow("not a map")            << R"("9")"_ba                                 << u"0"_s << none    << none     << 0;
    QTest::newRow("all four")          << R"({"id":"9","assetBeginDate":"2026-01-31","assetEndDate":"2026-12-31","weight":3})"_ba << u"9"_s << january << december << 3;
    QTest::newRow("id as number")      << R"({"id":9})"_ba                            << u"9"_s << none    << none     << 0;
    QTest::newRow("no id: empty")      << R"({"weight":3})"_ba                        << u""_s  << none    << none     << 3;
    QTest::newRow("weight as text")    << R"({"id":"9","weight":"3"})"_ba             << u"9"_s << none    << none     << 3;
    QTest::newRow("weight no number")  << R"({"id":"9","weight":"x"})"_ba             << u"9"_s << none    << none     << 0;
    QTest::newRow("groupId replaces")  << R"({"id":"9","groupId":"5"})"_ba            << u"5"_s << none    << none     << 0;
    QTest::newRow("groupId alone")     << R"({"groupId":5})"_ba                       << u"5"_s << none    << none     << 0;
    QTest::newRow("empty groupId replaces") << R"({"id":"9","groupId":""})"_ba        << u""_s  << none    << none     << 0;
    QTest::newRow("groupId null replaces") << R"({"id":"9","groupId":null})"_ba       << u""_s  << none    << none     << 0;
    QTest::newRow("seconds")           << R"({"id":"9","data_beg":1769806800,"data_end":1798664400})"_ba << u"9"_s << moment(1769806800) << moment(1798664400) << 0;
    QTest::newRow("seconds replace")   << R"({"id":"9","assetBeginDate":"2026-01-31","assetEndDate":"2026-12-31","data_beg":1,"data_end":2})"_ba << u"9"_s << moment(1) << moment(2) << 0;
    QTest::newRow("one of the two")    << R"({"id":"9","assetBeginDate":"2026-01-31","assetEndDate":"2026-12-31","data_end":2})"_ba << u"9"_s << january << moment(2) << 0;
    QTest::newRow("the other")         << R"({"id":"9","assetBeginDate":"2026-01-31","assetEndDate":"2026-12-31","data_beg":2})"_ba << u"9"_s << moment(2) << december << 0;
    QTest::newRow("seconds as text")   << R"({"id":"9","data_beg":"1769806800"})"_ba  << u"9"_s << moment(1769806800) << none << 0;
    QTest::newRow("64 bits of seconds") << R"({"id":"9","data_beg":32503680000})"_ba  << u"9"_s << moment(32503680000) << none << 0;
    QTest::newRow("seconds no number") << R"({"id":"9","data_beg":"x"})"_ba           << u"9"_s << moment(0) << none   << 0;
    QTest::newRow("seconds null")      << R"({"id":"9","data_beg":null})"_ba          << u"9"_s << moment(0) << none   << 0;
    QTest::newRow("date with a time")  << R"({"id":"9","assetBeginDate":"2026-01-31T10:00:00"})"_ba << u"9"_s << none  << none << 0;
    QTest::newRow("date the other way round") << R"({"id":"9","assetBeginDate":"31.01.2026"})"_ba << u"9"_s << none    << none << 0;
    QTest::newRow("invalid date") << R"({"id":"9","assetBeginDate":"2026-02-30"})"_ba << u"9"_s << none           << none << 0;
    // clang-format on
}

void TestTalloBonusMessage::assetGroup()
{
    QFETCH(QByteArray, map);
    QFETCH(QString, id);
    QFETCH(QDateTime, begin);
    QFETCH(QDateTime, end);
    QFETCH(int, weight);

    const BonusAssetGroup group = read(R"({"assetGroup":)" + map + "}").assetGroup;
    QCOMPARE(group.id, id);
    QCOMPARE(group.beginDate, begin);
    QCOMPARE(group.endDate, end);
    QCOMPARE(group.weight, weight);
}

void TestTalloBonusMessage::momentBeyondTheCalendar()
{
    const QByteArray most = QByteArray::number(std::numeric_limits<qint64>::max());
    QVERIFY(!read(R"({"assetGroup":{"data_beg":)" + most + "}}").assetGroup.beginDate.isValid());
}

void TestTalloBonusMessage::sessionInfo_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("sessionId");
    QTest::addColumn<QVariantMap>("details");

    const QVariantMap cheque{{u"cheque"_s, 42}};
    // clang-format off
    QTest::newRow("nothing")               << R"({})"_ba                                                << u""_s    << QVariantMap();
    QTest::newRow("id alone")              << R"({"sessionId":"s-1"})"_ba                               << u"s-1"_s << QVariantMap();
    QTest::newRow("map alone")             << R"({"additionalInfo":{"cheque":42}})"_ba                  << u""_s    << cheque;
    QTest::newRow("id of the map is replaced") << R"({"sessionId":"s-1","additionalInfo":{"sessionId":"x","cheque":42}})"_ba << u"s-1"_s << cheque;
    QTest::newRow("even by none")          << R"({"additionalInfo":{"sessionId":"x","cheque":42}})"_ba  << u""_s    << cheque;
    QTest::newRow("not a map")                << R"({"sessionId":"s-1","additionalInfo":"x"})"_ba          << u"s-1"_s << QVariantMap();
    // clang-format on
}

void TestTalloBonusMessage::sessionInfo()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, sessionId);
    QFETCH(QVariantMap, details);
    const SessionInfo info = read(body).sessionInfo;
    QCOMPARE(info.getSessionId(), sessionId);
    QCOMPARE(QJsonObject::fromVariantMap(info.getDetails()), QJsonObject::fromVariantMap(details));
}

void TestTalloBonusMessage::flags_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("value");
    QTest::newRow("true") << "true"_ba << true;
    QTest::newRow("false") << "false"_ba << false;
    QTest::newRow("text") << R"("true")"_ba << true;
    QTest::newRow("text 0") << R"("0")"_ba << false;
    QTest::newRow("1") << "1"_ba << true;
    QTest::newRow("0") << "0"_ba << false;
    QTest::newRow("null") << "null"_ba << false;
    QTest::newRow("object") << "{}"_ba << false;
}

void TestTalloBonusMessage::flags()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, value);
    QCOMPARE(read(R"({"nonConfirm":)" + json + "}").nonConfirm, value);
    QCOMPARE(read(R"({"fullReturn":)" + json + "}").fullReturn, value);
    QCOMPARE(read(R"({"checkAssets":)" + json + "}").checkAssets, value);
}

void TestTalloBonusMessage::hosts_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("hosts");
    QTest::newRow("in their order") << R"(["b","a","b"])"_ba << QStringList{u"b"_s, u"a"_s, u"b"_s};
    QTest::newRow("one text") << R"("a")"_ba << QStringList{u"a"_s};
    QTest::newRow("empty") << "[]"_ba << QStringList();
    QTest::newRow("object") << "{}"_ba << QStringList();
}

void TestTalloBonusMessage::hosts()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, hosts);
    QCOMPARE(read(R"({"hosts":)" + json + "}").hosts, hosts);
}

QTEST_GUILESS_MAIN(TestTalloBonusMessage)
#include "tst_tallobonusmessage.moc"
