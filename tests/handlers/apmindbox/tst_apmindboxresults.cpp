#include "handlers/apmindbox/results.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <log4qt/logmanager.h>

#include <QJsonObject>
#include <QTest>

#include <type_traits>

using namespace Qt::StringLiterals;
using namespace apmindbox;

namespace {

const tr::Tr ownText(u"Не вышло"_s);
const QByteArray successReply = R"({"status":"Success"})";
const QByteArray errorReply = R"({"status":"Success","errorMessage":"x"})";

OperationResult resultOf(const http::Response &answer)
{
    return OperationResult(answer, *Log4Qt::LogManager::logger(u"apmindbox"_s));
}

OperationResult resultOf(const QByteArray &body)
{
    return resultOf(reply(200, body));
}

QString yesNo(bool value)
{
    return value ? u"yes"_s : u"no"_s;
}

/// All members in their order, so that a row can compare them at once.
QString told(const ApMindboxCustomer &customer)
{
    return QStringList{
        yesNo(customer.isMobilePhoneConfirmed),
        yesNo(customer.consentToElectronicChecks),
        customer.email,
        customer.firstName,
        customer.lastName,
        customer.mobilePhone,
        customer.birthDate.isValid() ? customer.birthDate.toString(Qt::ISODate) : u"-"_s,
        customer.sex,
        QString::number(static_cast<int>(customer.processingStatus)),
    }
        .join(u'|');
}

const QString noCustomer = u"no|no|||||-||0"_s;

QByteArray nested(int levels)
{
    return QByteArray(R"({"customer":)").repeated(levels) + "1" + QByteArray("}").repeated(levels);
}

} // namespace

class TestApMindboxResults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void defaults();
    void status_data();
    void status();
    void errorMessage_data();
    void errorMessage();
    void connection_data();
    void connection();
    void codesOfTheExchange();
    void processingStatus_data();
    void processingStatus();
    void customer_data();
    void customer();
    void strangeReply_data();
    void strangeReply();
    void hugeReply();
    void success_data();
    void success();
    void registrationIsReadAgain();
    void errorOr();
    void furtherResultsKeepTheBase();
};

void TestApMindboxResults::operationsKeepTheirPlaces()
{
    // The destructor takes the first two.
    QCOMPARE(slotOf(&OperationResult::isSuccess), 2);
    QCOMPARE(slotOf(&OperationResult::errorOr), 3);
    QCOMPARE(slotOf(&CreateOrderResult::isSuccess), 2);
    QCOMPARE(slotOf(&GetCustomerResult::isSuccess), 2);
    QCOMPARE(slotOf(&RegisterCustomerResult::isSuccess), 2);
    QVERIFY(std::has_virtual_destructor_v<OperationResult>);
}

void TestApMindboxResults::defaults()
{
    const OperationResult result;
    QCOMPARE(result.httpStatus, 0);
    QCOMPARE(result.networkError, 0);
    QVERIFY(!result.noConnection);
    QCOMPARE(static_cast<int>(result.status), 0);
    QVERIFY(result.error.isEmpty());
    QVERIFY(result.response.isEmpty());
    QCOMPARE(told(result.customer), noCustomer);
    QVERIFY(!result.isSuccess());
}

void TestApMindboxResults::status_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    QTest::newRow("success") << QByteArray(R"({"status":"Success"})") << 2;
    QTest::newRow("validation error") << QByteArray(R"({"status":"ValidationError"})") << 3;
    QTest::newRow("protocol error") << QByteArray(R"({"status":"ProtocolError"})") << 4;
    QTest::newRow("another text") << QByteArray(R"({"status":"InternalServerError"})") << 0;
    QTest::newRow("Error is not a text of the platform")
        << QByteArray(R"({"status":"Error"})") << 0;
    QTest::newRow("case matters") << QByteArray(R"({"status":"success"})") << 0;
    QTest::newRow("a number") << QByteArray(R"({"status":2})") << 0;
    QTest::newRow("an object") << QByteArray(R"({"status":{"status":"Success"}})") << 0;
    QTest::newRow("an array") << QByteArray(R"({"status":["Success"]})") << 0;
    QTest::newRow("null") << QByteArray(R"({"status":null})") << 0;
    QTest::newRow("absent") << QByteArray(R"({"order":{"status":"Success"}})") << 0;
    QTest::newRow("an error message overrides")
        << QByteArray(R"({"status":"Success","errorMessage":"x"})") << 1;
}

void TestApMindboxResults::status()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);

    const OperationResult result = resultOf(body);
    QCOMPARE(static_cast<int>(result.status), status);
    QCOMPARE(result.isSuccess(), status == 2);
    QVERIFY(!result.noConnection);
    QVERIFY(result.error.isEmpty());
}

void TestApMindboxResults::errorMessage_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("with a status")
        << QByteArray(R"({"status":"ProtocolError","errorMessage":"Нет операции"})")
        << QStringList{u"ERROR Статус: ProtocolError"_s, u"ERROR Ошибка: Нет операции"_s};
    QTest::newRow("with success") << QByteArray(R"({"status":"Success","errorMessage":"x"})")
                                  << QStringList{u"ERROR Статус: Success"_s, u"ERROR Ошибка: x"_s};
    QTest::newRow("an unknown status is logged unchanged")
        << QByteArray(R"({"status":"Busy","errorMessage":"x"})")
        << QStringList{u"ERROR Статус: Busy"_s, u"ERROR Ошибка: x"_s};
    QTest::newRow("without a status") << QByteArray(R"({"errorMessage":"x"})")
                                      << QStringList{u"ERROR Статус: "_s, u"ERROR Ошибка: x"_s};
    QTest::newRow("an empty message is one")
        << QByteArray(R"({"status":"Success","errorMessage":""})")
        << QStringList{u"ERROR Статус: Success"_s, u"ERROR Ошибка: "_s};
    QTest::newRow("a null is one") << QByteArray(R"({"status":"Success","errorMessage":null})")
                                   << QStringList{u"ERROR Статус: Success"_s, u"ERROR Ошибка: "_s};
    QTest::newRow("an object is one")
        << QByteArray(R"({"status":"Success","errorMessage":{"text":"x"}})")
        << QStringList{u"ERROR Статус: Success"_s, u"ERROR Ошибка: "_s};
    QTest::newRow("placeholders stay")
        << QByteArray(R"({"status":"%1 %2","errorMessage":"100%1 %2"})")
        << QStringList{u"ERROR Статус: %1 %2"_s, u"ERROR Ошибка: 100%1 %2"_s};
    QTest::newRow("no message, no lines")
        << QByteArray(R"({"status":"ValidationError","errorId":"7"})") << QStringList{};
    QTest::newRow("only at the top")
        << QByteArray(R"({"status":"Success","order":{"errorMessage":"x"}})") << QStringList{};
}

void TestApMindboxResults::errorMessage()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, lines);

    for (const int httpStatus : {200, 400, 500}) {
        const LogCapture log(u"apmindbox"_s);
        const OperationResult result = resultOf(reply(httpStatus, body));
        QCOMPARE(log.lines(), lines);
        QCOMPARE(result.status == RequestStatus::Error, !lines.isEmpty());
        QVERIFY(!result.noConnection);
        QVERIFY(result.error.isEmpty());
    }
}

void TestApMindboxResults::connection_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("lost");

    QTest::newRow("refused") << noConnection() << true;
    QTest::newRow("no answer in time") << timeout() << true;
    QTest::newRow("500 without a body") << reply(500) << true;
    QTest::newRow("500 with an empty object") << reply(500, "{}") << true;
    QTest::newRow("502 of a proxy, not JSON") << reply(502, "<html>Bad Gateway</html>") << true;
    QTest::newRow("400 without a body") << reply(400) << true;
    QTest::newRow("204") << reply(204) << true;
    QTest::newRow("302 without a body") << reply(302) << true;
    QTest::newRow("500 with an array") << reply(500, R"([{"status":"Success"}])") << true;
    QTest::newRow("cut off after a 500") << http::Response::failed(2, tr::Tr(u"x"_s), 500) << true;
    QTest::newRow("200 without a body") << reply(200) << false;
    QTest::newRow("200 with an empty object") << reply(200, "{}") << false;
    QTest::newRow("cut off after a 200") << http::Response::failed(2, tr::Tr(u"x"_s), 200) << true;
    QTest::newRow("200 that is too large")
        << reply(200, QByteArray(4 * 1024 * 1024 + 1, ' ')) << true;
    QTest::newRow("stalled after a 200") << http::Response::failed(4, tr::Tr(u"x"_s), 200) << true;
    QTest::newRow("500 that says something else") << reply(500, R"({"a":1})") << false;
}

void TestApMindboxResults::connection()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, lost);

    const LogCapture log(u"apmindbox"_s);
    const OperationResult result = resultOf(answer);
    QCOMPARE(result.noConnection, lost);
    QCOMPARE(static_cast<int>(result.status), lost ? 1 : 0);
    QCOMPARE(result.error,
             lost ? tr::Tr(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s) : tr::Tr());
    QCOMPARE(told(result.customer), noCustomer);
    QCOMPARE(log.lines(), QStringList());
}

void TestApMindboxResults::codesOfTheExchange()
{
    const OperationResult refused = resultOf(reply(400, R"({"status":"ValidationError"})"));
    QCOMPARE(refused.httpStatus, 400);
    QCOMPARE(refused.networkError, 302);
    QCOMPARE(refused.response, (QJsonObject{{u"status"_s, u"ValidationError"_s}}));
    const OperationResult lost = resultOf(timeout());
    QCOMPARE(lost.httpStatus, 0);
    QCOMPARE(lost.networkError, 4);
    QVERIFY(lost.response.isEmpty());
    // The code of the exchange does not influence the verdict.
    QVERIFY(resultOf(reply(400, successReply)).isSuccess());
}

void TestApMindboxResults::processingStatus_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<int>("value");

    QTest::newRow("NotFound") << uR"("NotFound")"_s << 1;
    QTest::newRow("Found") << uR"("Found")"_s << 2;
    QTest::newRow("Changed") << uR"("Changed")"_s << 3;
    QTest::newRow("Created") << uR"("Created")"_s << 5;
    QTest::newRow("MobilePhoneConfirmed") << uR"("MobilePhoneConfirmed")"_s << 6;
    QTest::newRow("AlreadyConfirmed") << uR"("AlreadyConfirmed")"_s << 7;
    QTest::newRow("Processed") << uR"("Processed")"_s << 8;
    QTest::newRow("NotProcessed") << uR"("NotProcessed")"_s << 9;
    QTest::newRow("Calculated") << uR"("Calculated")"_s << 10;
    QTest::newRow("IncorrectConfirmationCode") << uR"("IncorrectConfirmationCode")"_s << 11;
    // This client has no card operations like the larger one.
    QTest::newRow("Bound") << uR"("Bound")"_s << 0;
    QTest::newRow("AlreadyBoundToCurrentCustomer") << uR"("AlreadyBoundToCurrentCustomer")"_s << 0;
    QTest::newRow("PriceHasBeenChanged") << uR"("PriceHasBeenChanged")"_s << 0;
    QTest::newRow("case matters") << uR"("processed")"_s << 0;
    QTest::newRow("a trailing blank") << uR"("Processed ")"_s << 0;
    QTest::newRow("empty") << uR"("")"_s << 0;
    QTest::newRow("a number") << u"8"_s << 0;
    QTest::newRow("true") << u"true"_s << 0;
    QTest::newRow("null") << u"null"_s << 0;
    QTest::newRow("an array") << uR"(["Processed"])"_s << 0;
    QTest::newRow("an object") << uR"({"processingStatus":"Processed"})"_s << 0;
}

void TestApMindboxResults::processingStatus()
{
    QFETCH(QString, json);
    QFETCH(int, value);

    const QString members = uR"({"customer":{"processingStatus":%1},"order":{}})"_s.arg(json);
    QCOMPARE(static_cast<int>(resultOf(members.toUtf8()).customer.processingStatus), value);
    const QString order = uR"({"order":{"processingStatus":%1},"customer":{}})"_s.arg(json);
    const CreateOrderResult result(resultOf(order.toUtf8()));
    QCOMPARE(static_cast<int>(result.processingStatus), value);
}

void TestApMindboxResults::customer_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");

    QTest::newRow("whole") << QByteArray(R"({
        "processingStatus": "Found", "isMobilePhoneConfirmed": true, "email": "a@b.test",
        "firstName": "Анна", "lastName": "Ли", "mobilePhone": "79001234567",
        "birthDate": "1990-05-17", "sex": "female",
        "customFields": {"consentToElectronicChecks": true}})")
                           << u"yes|yes|a@b.test|Анна|Ли|79001234567|1990-05-17|female|2"_s;
    QTest::newRow("empty") << QByteArray("{}") << noCustomer;
    QTest::newRow("phone as a number")
        << QByteArray(R"({"mobilePhone":79001234567})") << u"no|no||||79001234567|-||0"_s;
    QTest::newRow("phone as true")
        << QByteArray(R"({"mobilePhone":true})") << u"no|no||||true|-||0"_s;
    QTest::newRow("phone as null") << QByteArray(R"({"mobilePhone":null})") << noCustomer;
    QTest::newRow("phone as an object") << QByteArray(R"({"mobilePhone":{"a":1}})") << noCustomer;
    QTest::newRow("phone as an array") << QByteArray(R"({"mobilePhone":["7","8"]})") << noCustomer;

    QTest::newRow("date as it goes out")
        << QByteArray(R"({"birthDate":"17.05.1990"})") << noCustomer;
    QTest::newRow("date with a time")
        << QByteArray(R"({"birthDate":"1990-05-17T00:00:00Z"})") << noCustomer;
    QTest::newRow("no such day") << QByteArray(R"({"birthDate":"1990-02-30"})") << noCustomer;
    QTest::newRow("leap day") << QByteArray(R"({"birthDate":"2000-02-29"})")
                              << u"no|no|||||2000-02-29||0"_s;
    QTest::newRow("date as a number") << QByteArray(R"({"birthDate":19900517})") << noCustomer;
    QTest::newRow("sex as the platform gives it")
        << QByteArray(R"({"sex":"Unknown"})") << u"no|no|||||-|Unknown|0"_s;

    QTest::newRow("texts as numbers")
        << QByteArray(R"({"email":1,"firstName":2,"lastName":3,"sex":4})") << noCustomer;
    QTest::newRow("texts as arrays")
        << QByteArray(R"({"email":["a"],"firstName":[],"lastName":[1],"sex":["m"]})") << noCustomer;
    QTest::newRow("texts as objects")
        << QByteArray(R"({"email":{},"firstName":{"a":"b"},"lastName":{},"sex":{"a":1}})")
        << noCustomer;
    QTest::newRow("flags as texts") << QByteArray(R"({"isMobilePhoneConfirmed":"true",
                          "customFields":{"consentToElectronicChecks":"true"}})")
                                    << noCustomer;
    QTest::newRow("flags as numbers") << QByteArray(
        R"({"isMobilePhoneConfirmed":1,"customFields":{"consentToElectronicChecks":1}})")
                                      << noCustomer;
    QTest::newRow("custom fields as an array")
        << QByteArray(R"({"customFields":[true]})") << noCustomer;
    // A path ends at the first value that is not an object; that value is its result.
    QTest::newRow("custom fields as true")
        << QByteArray(R"({"customFields":true})") << u"no|yes|||||-||0"_s;
    QTest::newRow("a text instead of the customer")
        << QByteArray(R"("x")") << u"no|no|x|x|x|x|-|x|0"_s;
    QTest::newRow("a number instead of the customer") << QByteArray("5") << u"no|no||||5|-||0"_s;
    QTest::newRow("true instead of the customer")
        << QByteArray("true") << u"yes|yes||||true|-||0"_s;
    QTest::newRow("null instead of the customer") << QByteArray("null") << noCustomer;
    QTest::newRow("an array instead of the customer")
        << QByteArray(R"([{"email":"a@b.test"}])") << noCustomer;
}

void TestApMindboxResults::customer()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);

    // The customer's part of the reply does not depend on the result of the operation.
    const QByteArray alone = R"({"customer":)" + json + "}";
    const QByteArray besideError = R"({"errorMessage":"x","customer":)" + json + "}";
    QCOMPARE(told(resultOf(alone).customer), expected);
    QCOMPARE(told(resultOf(besideError).customer), expected);
}

void TestApMindboxResults::strangeReply_data()
{
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("empty array") << QByteArray("[]");
    QTest::newRow("array with a success")
        << QByteArray(R"([{"status":"Success","order":{"processingStatus":"Processed"}}])");
    QTest::newRow("text") << QByteArray("Success");
    QTest::newRow("JSON text") << QByteArray(R"("Success")");
    QTest::newRow("JSON number") << QByteArray("2");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("HTML") << QByteArray("<html><body>Success</body></html>");
    QTest::newRow("cut off") << QByteArray(
        R"({"status":"Success","order":{"processingStatus":"Processed")");
    QTest::newRow("rubbish after it")
        << QByteArray(R"({"status":"Success","order":{"processingStatus":"Processed"}}})");
    QTest::newRow("not UTF-8") << QByteArray("{\"status\":\"\xff\xfe\"}");
    QTest::newRow("zero bytes") << QByteArray(64, '\0');
    QTest::newRow("order as a text") << QByteArray(R"({"order":"yes","status":""})");
    QTest::newRow("order as an array")
        << QByteArray(R"({"order":[{"processingStatus":"Processed"}],"status":[]})");
    QTest::newRow("order as null") << QByteArray(R"({"order":null,"status":null})");
    QTest::newRow("a thousand objects deep") << nested(1000);
    QTest::newRow("a hundred thousand objects deep") << nested(100'000);
    QTest::newRow("a hundred thousand arrays deep")
        << R"({"order":)" + QByteArray(100'000, '[') + QByteArray(100'000, ']') + "}";
}

void TestApMindboxResults::strangeReply()
{
    QFETCH(QByteArray, body);

    const LogCapture log(u"apmindbox"_s);
    const OperationResult result = resultOf(body);
    QCOMPARE(static_cast<int>(result.status), 0);
    QVERIFY(!result.noConnection);
    QVERIFY(result.error.isEmpty());
    QCOMPARE(told(result.customer), noCustomer);
    QVERIFY(!result.isSuccess());

    const CreateOrderResult order(result);
    QCOMPARE(static_cast<int>(order.processingStatus), 0);
    QVERIFY(!order.isSuccess());
    QVERIFY(!GetCustomerResult(result).isSuccess());
    QVERIFY(!RegisterCustomerResult(result).isSuccess());
    QCOMPARE(log.lines(), QStringList());
}

void TestApMindboxResults::hugeReply()
{
    constexpr qsizetype size = 4'000'000;
    const QByteArray name(size, 'a');
    const OperationResult result =
        resultOf(R"({"status":"Success","order":{"processingStatus":"Processed"},"customer":{)"
                 R"("processingStatus":"Created","firstName":")"
                 + name + R"("}})");
    QVERIFY(result.isSuccess());
    QCOMPARE(result.customer.firstName.size(), size);
    QVERIFY(CreateOrderResult(result).isSuccess());
    QVERIFY(RegisterCustomerResult(result).isSuccess());

    QByteArray lines;
    while (lines.size() < size)
        lines += R"({"lineNumber":1,"product":{"ids":{"till":"4600000000017"}},"quantity":2.5},)";
    lines.chop(1);
    const CreateOrderResult order(
        resultOf(R"({"order":{"lines":[)" + lines + R"(],"processingStatus":"Calculated"}})"));
    QVERIFY(order.isSuccess());
    QVERIFY(!order.response.isEmpty());

    // As long, but invalid at its last byte.
    const QByteArray cutOff = R"({"status":"Success","a":")" + name;
    QVERIFY(resultOf(cutOff).response.isEmpty());
}

void TestApMindboxResults::success_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("successes");

    const auto row = [](const char *name, const QByteArray &body, const QString &successes) {
        QTest::newRow(name) << body << successes;
    };
    // Which results count the reply as a success: any operation, an order, a lookup, a
    // registration.
    row("success alone", R"({"status":"Success"})", u"operation"_s);
    row("found", R"({"status":"Success","customer":{"processingStatus":"Found"}})",
        u"operation lookup"_s);
    row("not found", R"({"status":"Success","customer":{"processingStatus":"NotFound"}})",
        u"operation lookup"_s);
    row("changed", R"({"status":"Success","customer":{"processingStatus":"Changed"}})",
        u"operation"_s);
    row("found without success",
        R"({"status":"ValidationError","customer":{"processingStatus":"Found"}})", u""_s);
    row("not found beside an error",
        R"({"status":"Success","errorMessage":"x","customer":{"processingStatus":"NotFound"}})",
        u""_s);
    row("created", R"({"status":"Success","customer":{"processingStatus":"Created"}})",
        u"operation registration"_s);
    row("created without success",
        R"({"status":"ValidationError","customer":{"processingStatus":"Created"}})",
        u"registration"_s);
    row("created without a status", R"({"customer":{"processingStatus":"Created"}})",
        u"registration"_s);
    row("created beside an error",
        R"({"errorMessage":"x","customer":{"processingStatus":"Created"}})", u"registration"_s);
    row("order processed", R"({"status":"Success","order":{"processingStatus":"Processed"}})",
        u"operation order"_s);
    row("order calculated", R"({"status":"Success","order":{"processingStatus":"Calculated"}})",
        u"operation order"_s);
    row("order processed without success",
        R"({"status":"ValidationError","order":{"processingStatus":"Processed"}})", u"order"_s);
    row("order calculated beside an error",
        R"({"errorMessage":"x","order":{"processingStatus":"Calculated"}})", u"order"_s);
    row("order not processed",
        R"({"status":"Success","order":{"processingStatus":"NotProcessed"}})", u"operation"_s);
    row("order created", R"({"status":"Success","order":{"processingStatus":"Created"}})",
        u"operation"_s);
    row("status of the customer is not that of the order",
        R"({"customer":{"processingStatus":"Processed"},"order":{}})", u""_s);
    row("status of the order is not that of the customer",
        R"({"status":"Success","order":{"processingStatus":"Found"}})", u"operation"_s);
}

void TestApMindboxResults::success()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, successes);

    for (const int httpStatus : {200, 400, 500}) {
        const OperationResult result = resultOf(reply(httpStatus, body));
        const CreateOrderResult order(result);
        const GetCustomerResult lookup(result);
        const RegisterCustomerResult registration(result);
        const QList<std::pair<QString, const OperationResult *>> verdicts{
            {u"operation"_s, &result},
            {u"order"_s, &order},
            {u"lookup"_s, &lookup},
            {u"registration"_s, &registration}};
        QStringList judged;
        for (const auto &[name, verdict] : verdicts) {
            if (verdict->isSuccess())
                judged.append(name);
        }
        QCOMPARE(judged.join(u' '), successes);
    }
}

void TestApMindboxResults::registrationIsReadAgain()
{
    RegisterCustomerResult result(resultOf(R"({"status":"Success"})"));
    QVERIFY(!result.isSuccess());
    result.response.insert(u"customer"_s, QJsonObject{{u"processingStatus"_s, u"Created"_s}});
    QVERIFY(result.isSuccess());
}

void TestApMindboxResults::errorOr()
{
    QCOMPARE(resultOf(noConnection()).errorOr(ownText).ru(), u"Ошибка связи с сервером"_s);
    QCOMPARE(resultOf(errorReply).errorOr(ownText), ownText);
    QCOMPARE(resultOf(successReply).errorOr(ownText), ownText);
    QCOMPARE(OperationResult().errorOr(ownText), ownText);
    QVERIFY(OperationResult().errorOr(tr::Tr()).isEmpty());
    QCOMPARE(CreateOrderResult(resultOf(noConnection())).errorOr(ownText).ru(),
             u"Ошибка связи с сервером"_s);
}

void TestApMindboxResults::furtherResultsKeepTheBase()
{
    const OperationResult lost = resultOf(reply(503));
    const OperationResult told200 =
        resultOf(R"({"status":"Success","customer":{"processingStatus":"Found","sex":"male"}})");
    for (const OperationResult &base : {lost, told200}) {
        const CreateOrderResult order(base);
        const GetCustomerResult lookup(base);
        const RegisterCustomerResult registration(base);
        for (const OperationResult *result :
             {static_cast<const OperationResult *>(&order),
              static_cast<const OperationResult *>(&lookup),
              static_cast<const OperationResult *>(&registration)}) {
            QCOMPARE(result->httpStatus, base.httpStatus);
            QCOMPARE(result->networkError, base.networkError);
            QCOMPARE(result->noConnection, base.noConnection);
            QCOMPARE(result->status, base.status);
            QCOMPARE(result->error, base.error);
            QCOMPARE(result->response, base.response);
            QCOMPARE(told(result->customer), told(base.customer));
        }
    }
    QVERIFY(lost.noConnection);
    QCOMPARE(told(told200.customer), u"no|no|||||-|male|2"_s);
}

QTEST_GUILESS_MAIN(TestApMindboxResults)
#include "tst_apmindboxresults.moc"
