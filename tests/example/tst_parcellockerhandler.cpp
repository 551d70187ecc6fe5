#include "engine/handlerfactory.h"
#include "tests/example/parcellockerhandler.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// clang-format off
constexpr HandlerRow rows[] = {
    row<ParcelLockerHandler>          (u"parcellocker",           u"cell"),
};
// clang-format on

QString read(const QString &path)
{
    QFile file(QStringLiteral(QUEUE_SOURCE_DIR) + u'/' + path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

/// The example message type of docs/architecture.md: one class and one row.
class TestParcelLockerHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outcomes_data();
    void outcomes();
    void thePageShowsThisCode_data();
    void thePageShowsThisCode();
};

void TestParcelLockerHandler::outcomes_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QStringList>("lines");

    const auto reply = [](const char *body) {
        return http::Response::answered(200, body);
    };
    const QString notOpened = u"WARN Ячейка не открыта"_s;
    // clang-format off
    QTest::newRow("opened")       << reply(R"({"opened":true})")                << u"delivered"_s                     << QStringList{};
    QTest::newRow("empty cell")   << reply(R"({"opened":false,"retry":false})") << u"dropped: ячейка пуста"_s         << QStringList{notOpened};
    QTest::newRow("locker busy")  << reply(R"({"opened":false,"retry":true})")  << u"kept service: ячейка не открыта"_s << QStringList{notOpened};
    QTest::newRow("not JSON")     << reply("ok")                                << u"kept service: ячейка не открыта"_s << QStringList{notOpened};
    QTest::newRow("HTTP error")   << http::Response::answered(503, {})          << keptBy(http::Response::answered(503, {})) << QStringList{u"ERROR Ошибка при отправке сообщения: "_s + http::Response::answered(503, {}).errorText.ru()};
    // clang-format on
}

void TestParcelLockerHandler::outcomes()
{
    QFETCH(const http::Response, answer);
    QFETCH(const QString, outcome);
    QFETCH(const QStringList, lines);
    const LogCapture log(u"parcellocker"_s);
    FakeRestClient net({answer});
    HandlerFactory factory(rows);
    const std::unique_ptr<BasicHandler> handler(factory.create(u"parcellocker"_s));
    Message message;
    message.id = 7;
    message.body = {{u"url"_s, u"https://locker.test/open"_s}, {u"cell"_s, u"12"_s}};

    const Outcome ended = handler->attempt(message);
    QCOMPARE(told(ended), outcome);
    QCOMPARE(ended.reference, u"12"_s);
    QCOMPARE(net.transcript(), QStringList{u"POST https://locker.test/open"_s});
    QCOMPARE(net.lastRequest().body, R"({"cell":"12"})");
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s} + lines);
}

void TestParcelLockerHandler::thePageShowsThisCode_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("header") << u"tests/example/parcellockerhandler.h"_s;
    QTest::newRow("source") << u"tests/example/parcellockerhandler.cpp"_s;
}

void TestParcelLockerHandler::thePageShowsThisCode()
{
    QFETCH(const QString, file);
    const QString page = read(u"docs/architecture.md"_s);
    // The page names the folder of real handlers.
    const QString code = read(file).replace(u"tests/example/"_s, u"handlers/other/"_s);
    QVERIFY(!code.isEmpty());
    QVERIFY2(page.contains(u"```cpp\n"_s + code + u"```"_s),
             qPrintable(u"docs/architecture.md does not show %1 as it is"_s.arg(file)));
}

QTEST_GUILESS_MAIN(TestParcelLockerHandler)
#include "tst_parcellockerhandler.moc"
