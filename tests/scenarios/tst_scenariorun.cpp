#include "tools/stand/scenarioerror.h"
#include "tools/stand/scenariorun.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace stand;

/// Scenarios that do not match the real service: each must fail.
class TestScenarioRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrongExpectations_data();
    void wrongExpectations();
    void serviceThatDoesNotStart();
    void missingService();

private:
    RunResult run(const QByteArray &scenario, const QString &program);

    QTemporaryDir folder;
    const QString service = qEnvironmentVariable("QUEUE_PROGRAM", QStringLiteral(QUEUE_PROGRAM));
};

RunResult TestScenarioRun::run(const QByteArray &scenario, const QString &program)
{
    // One message, which is delivered; each scenario then differs in one point.
    static const QByteArray defaults = R"({
        "message": {"type": "heineken", "cardnumber": "c", "body": {"url": "{{http}}/a", "body": "1"}},
        "exchange": {"request": "POST /a", "body": "1", "reply": 200}})";
    QFile file(folder.filePath(u"story.json"_s));
    if (!file.open(QIODevice::WriteOnly)
        || file.write("{\"defaults\": " + defaults + ", \"scenarios\": [" + scenario + "]}") < 0)
        qFatal("%s", qPrintable(file.errorString()));
    file.close();
    RunOptions options;
    options.program = program;
    return ScenarioRun(loadScenarios(file.fileName()).first(), options).run();
}

void TestScenarioRun::wrongExpectations_data()
{
    QTest::addColumn<QByteArray>("difference");
    QTest::addColumn<QStringList>("findings");

    const auto row = [](const char *name, const char *difference, const QStringList &findings) {
        QTest::newRow(name) << QByteArray(difference) << findings;
    };
    const QString failure =
        u"ERROR [heineken] Ошибка при отправке сообщения: Сервер ответил ошибкой, код состояния HTTP 500"_s;
    const QByteArray refused =
        R"("exchange": {"reply": 500}, "log": ["ERROR [heineken] {{any}}"], )";
    row("a correct scenario", R"("outcome": "delivered")", {});
    row("expected kept, is removed", R"("outcome": "kept")",
        {u"message 1 of type heineken is not in the table any more"_s,
         u"message 1 of type heineken, journal: verdict\n  - kept\n  + delivered"_s});
    row("expected dropped, is delivered", R"("outcome": "dropped")",
        {u"message 1 of type heineken, journal: verdict\n  - dropped\n  + delivered"_s});
    row("expected untried, is delivered", R"("outcome": "removed")",
        {u"message 1 of type heineken is in the journal"_s});
    row("expected untried, is refused", refused + R"("outcome": "waiting")",
        {u"message 1 of type heineken is in the journal"_s});
    row("expected tried, has no handler",
        R"("exchanges": [], "message": {"type": "nosuchtype"}, "outcome": "kept",
           "log": ["WARN [handlerfactory] Не найден обработчик для сообщений типа 'nosuchtype'"])",
        {u"message 1 of type nosuchtype is not in the journal"_s});
    row("kept for another reason",
        refused + R"("outcome": {"verdict": "kept", "kind": "network", "status": 502})",
        {u"message 1 of type heineken, journal: kind\n  - network\n  + service"_s,
         u"message 1 of type heineken, journal: status\n  - 502\n  + 500"_s});
    row("expected delivered, is kept; an unexpected error", R"("exchange": {"reply": 500})",
        {u"message 1 of type heineken is still in the table"_s,
         u"message 1 of type heineken, journal: verdict\n  - delivered\n  + kept"_s,
         u"the log has a line that the scenario does not expect: "_s + failure});
    row("another body arrives", R"("exchange": {"body": "2"})",
        {u"peer http, request 1: body\n  - 2\n  + 1"_s});
    row("an expected header is missing", R"("exchange": {"headers": {"A": "b"}})",
        {u"peer http, request 1: header A\n  - b\n  + (not there)"_s});
    row("a request that does not come", R"("exchanges": [{}, {"request": "PUT /b"}])",
        {u"peer http: exchange 2 never came: PUT /b"_s});
    row("a line that the log lacks",
        R"("log": ["INFO [heineken] Отправка сообщения 1", "INFO [heineken] Отправка сообщения 1"])",
        {u"the log lacks the line: INFO [heineken] Отправка сообщения 1"_s});
    row("a text that the log has", R"("logNever": ["Удаление сообщения {{digits}}"])",
        {u"the log must not say 'Удаление сообщения {{digits}}', but says: INFO [heineken] Удаление сообщения 1"_s});
    row("another answer of the control interface",
        R"("steps": [{"ask": "/db_errors_count", "answer": {"errorsCount": 1}}])",
        {u"steps[0]: /db_errors_count.errorsCount\n  - 1\n  + 0"_s});
    row("a pass of a type without a handler", R"("steps": [{"pass": "nosuchtype"}])",
        {u"steps[0]: /start/nosuchtype/0 was answered: Не удалось запустить обработчик"_s});
    row("a release without a waiting request", R"("steps": [{"release": "http"}])",
        {u"steps[0]: no request waits at peer http"_s});
    row("a card that is not there", R"("cards": [{"id": 7}], "cardsAfter": [])",
        {u"documentcard\n  - (none)\n  + id=7"_s});
    row("a correct scenario with its journal record",
        R"("outcome": {"verdict": "delivered", "kind": "none", "status": 200})", {});
    row("another journal record",
        R"("outcome": {"verdict": "dropped", "kind": "request", "status": 404, "reason": "no",
                       "reference": "no"})",
        {u"message 1 of type heineken, journal: verdict\n  - dropped\n  + delivered"_s,
         u"message 1 of type heineken, journal: kind\n  - request\n  + none"_s,
         u"message 1 of type heineken, journal: status\n  - 404\n  + 200"_s,
         u"message 1 of type heineken, journal: reason\n  - no\n  + "_s,
         u"message 1 of type heineken, journal: reference\n  - no\n  + /a"_s});
    row("kept with another status code",
        R"("exchange": {"reply": 500}, "outcome": {"verdict": "kept", "keptWithStatuscode": "1"},
           "log": ["ERROR [heineken] {{any}}"])",
        {u"message 1 of type heineken: statuscode\n  - 1\n  + "_s});
}

void TestScenarioRun::wrongExpectations()
{
    QFETCH(QByteArray, difference);
    const RunResult result = run("{\"name\": \"n\", " + difference + "}", service);
    QTEST(result.findings, "findings");
    QVERIFY(result.log.contains(u"INFO [queue] Запуск обработчиков"_s));
}

void TestScenarioRun::serviceThatDoesNotStart()
{
    // The database is a folder.
    const RunResult result = run(
        R"({"name": "n", "settings": {"database": {"name": "{{root}}/tmp"}}, "outcome": "kept"})",
        service);
    QCOMPARE(result.findings.value(0),
             u"the service ended with exit code 1 right after its start"_s);
    QVERIFY2(result.log.contains(u"ERROR [queue] Аварийное завершение работы"_s),
             qPrintable(result.log));
}

void TestScenarioRun::missingService()
{
    const RunResult result = run(R"({"name": "n"})", u"/nonexistent/queue"_s);
    QCOMPARE(result.findings.size(), 1);
    QVERIFY(result.findings.first().startsWith(u"/nonexistent/queue: "_s));
}

QTEST_GUILESS_MAIN(TestScenarioRun)
#include "tst_scenariorun.moc"
