#include "tests/handlers/support/onerequest.h"

#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

void compareRequest(const FakeRestClient &client, const SentRequest &sent)
{
    QCOMPARE(client.steps(), sent.steps);
    QCOMPARE(client.lastRequest().body, sent.body);
    QCOMPARE(client.lastRequest().headers, sent.headers);
    QVERIFY(client.lastRequest().logger);
}

void compareOutcome(const QString &type, const QString &message, const http::Response &answer,
                    bool finished, const QStringList &lines)
{
    const LogCapture log(type);
    const FakeRestClient client({answer});
    QCOMPARE(deliver(type, message), finished);
    QCOMPARE(log.lines(), lines);
}

QString failureLine(const http::Response &answer)
{
    return u"ERROR Ошибка при отправке сообщения: "_s + answer.errorText.ru();
}

void addLostExchanges()
{
    QTest::addColumn<http::Response>("answer");
    QTest::newRow("no connection") << noConnection();
    QTest::newRow("no answer in time") << timeout();
}
