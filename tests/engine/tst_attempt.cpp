#include "engine/attempt.h"
#include "engine/message.h"
#include "shared/net/exchangeobserver.h"

#include <QTest>

using namespace Qt::StringLiterals;
using http::FailureKind;

namespace {

using Reports = QList<http::ExchangeReport>;

/// What a handler says about the message, if anything.
struct Said
{
    Verdict verdict = Verdict::Kept;
    QString reason;
    FailureKind kind = FailureKind::Service;
};

Message message(int id)
{
    Message result;
    result.id = id;
    result.type = u"nspkec"_s;
    result.cardNumber = u"0017"_s;
    return result;
}

const http::ExchangeReport answered{FailureKind::None, 200, {}, u"/v1/refunds"_s};
const http::ExchangeReport refused{FailureKind::Network, 0, u"нет соединения"_s, u"/v1/refunds"_s};
const http::ExchangeReport broken{FailureKind::Service, 500, u"ошибка 500"_s, u"/v1/refunds"_s};

} // namespace

Q_DECLARE_METATYPE(Reports)
Q_DECLARE_METATYPE(Said)

class TestAttempt : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outcomes_data();
    void outcomes();
    void reasonBelongsToItsStep();
    void messageIsNamed();
    void keysNameTheMessage();
    void firstPathNamesTheMessage();
    void cardNumbersAreMasked();
    void longReasonsAreCut();
    void exchangesShowFacts();
};

void TestAttempt::outcomes_data()
{
    QTest::addColumn<Reports>("reports");
    QTest::addColumn<QList<Said>>("words");
    QTest::addColumn<bool>("isFinished");
    QTest::addColumn<QString>("expected");

    const Said givenUp{Verdict::Dropped, u"отказ"_s};
    const Said doneBefore{Verdict::Delivered, u"уже отменено"_s};
    const Said kept{Verdict::Kept, u"код -5"_s, FailureKind::Credentials};
    // clang-format off
    QTest::newRow("answered")                  << Reports{answered}          << QList<Said>{}            << true  << u"delivered none 200 "_s;
    QTest::newRow("given up")                  << Reports{answered}          << QList{givenUp}           << true  << u"dropped none 200 отказ"_s;
    QTest::newRow("given up, nothing sent")    << Reports{}                  << QList{givenUp}           << true  << u"dropped none 0 отказ"_s;
    QTest::newRow("done before")               << Reports{answered}          << QList{doneBefore}        << true  << u"delivered none 200 уже отменено"_s;
    QTest::newRow("an error that is allowed")  << Reports{broken}            << QList<Said>{}            << true  << u"delivered none 500 "_s;
    QTest::newRow("no connection")             << Reports{refused}           << QList<Said>{}            << false << u"kept network 0 нет соединения"_s;
    QTest::newRow("the last exchange counts")  << Reports{answered, broken}  << QList<Said>{}            << false << u"kept service 500 ошибка 500"_s;
    QTest::newRow("kept by the reply")         << Reports{answered}          << QList{kept}              << false << u"kept credentials 200 код -5"_s;
    QTest::newRow("answered, and kept")        << Reports{answered}          << QList<Said>{}            << false << u"kept service 200 "_s;
    QTest::newRow("nothing went out")          << Reports{}                  << QList<Said>{}            << false << u"kept request 0 "_s;
    QTest::newRow("the last word counts")      << Reports{answered}          << QList{kept, doneBefore}  << true  << u"delivered none 200 уже отменено"_s;
    QTest::newRow("finished, but said kept")   << Reports{answered}          << QList{kept}              << true  << u"delivered none 200 "_s;
    QTest::newRow("kept, but said given up")   << Reports{refused}           << QList{givenUp}           << false << u"kept network 0 нет соединения"_s;
    // clang-format on
}

void TestAttempt::outcomes()
{
    QFETCH(Reports, reports);
    QFETCH(QList<Said>, words);
    QFETCH(bool, isFinished);

    Attempt attempt(message(7));
    for (const http::ExchangeReport &report : reports)
        http::tellObserver(report);
    for (const Said &said : words)
        attempt.say(said.verdict, said.reason, said.kind);
    const Outcome outcome = attempt.outcome(isFinished);
    const QString text = u"%1 %2 %3 %4"_s.arg(nameOf(outcome.verdict), nameOf(outcome.kind),
                                              QString::number(outcome.status), outcome.text);
    QTEST(text, "expected");
}

void TestAttempt::reasonBelongsToItsStep()
{
    Attempt attempt(message(7));
    http::tellObserver(answered);
    attempt.say(Verdict::Dropped, u"отказ"_s, FailureKind::Service);
    http::tellObserver(answered);
    QCOMPARE(attempt.outcome(true).verdict, Verdict::Delivered);
    QCOMPARE(attempt.outcome(true).text, QString());

    attempt.say(Verdict::Kept, u"код 217"_s, FailureKind::Service);
    http::tellObserver(refused);
    QCOMPARE(attempt.outcome(false).kind, FailureKind::Network);
    QCOMPARE(attempt.outcome(false).text, u"нет соединения"_s);
}

void TestAttempt::messageIsNamed()
{
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const Attempt attempt(message(7));
    http::tellObserver(answered);
    const Outcome outcome = attempt.outcome(true);
    QCOMPARE(outcome.id, 7);
    QCOMPARE(outcome.type, u"nspkec"_s);
    QCOMPARE(outcome.card, u"****0017"_s);
    QCOMPARE(outcome.reference, u"/v1/refunds"_s);
    QVERIFY(outcome.begun >= before && outcome.begun <= QDateTime::currentDateTimeUtc());
}

void TestAttempt::keysNameTheMessage()
{
    Message refund = message(7);
    refund.body = {{u"order"_s, QVariantMap{{u"id"_s, u"A-1"_s}}}, {u"receipt"_s, 4711}};
    const Attempt named(refund, {u"receipt"_s, u"order.id"_s});
    http::tellObserver(answered);
    QCOMPARE(named.outcome(true).reference, u"4711 A-1"_s);
    // A message without its keys is found at least by the address.
    const Attempt nameless(message(7), {u"receipt"_s});
    http::tellObserver(answered);
    QCOMPARE(nameless.outcome(true).reference, u"/v1/refunds"_s);
}

/// Attempts may end at different steps, but the message is the same.
void TestAttempt::firstPathNamesTheMessage()
{
    const Attempt attempt(message(7));
    http::tellObserver({FailureKind::None, 200, {}, u"/v1/token"_s});
    http::tellObserver(broken);
    QCOMPARE(attempt.outcome(false).reference, u"/v1/token"_s);
}

void TestAttempt::cardNumbersAreMasked()
{
    Attempt attempt(message(7));
    http::tellObserver({FailureKind::None, 200, {}, u"/cards/4111111111111111"_s});
    attempt.say(Verdict::Dropped, u"карты 4111111111111111 нет"_s, FailureKind::None);
    const Outcome outcome = attempt.outcome(true);
    QCOMPARE(outcome.reference, u"/cards/****1111"_s);
    QCOMPARE(outcome.text, u"карты ****1111 нет"_s);
}

void TestAttempt::longReasonsAreCut()
{
    Attempt attempt(message(7));
    attempt.say(Verdict::Dropped, QString(5000, u'x'), FailureKind::None);
    QCOMPARE(attempt.outcome(true).text, QString(500, u'x'));
}

void TestAttempt::exchangesShowFacts()
{
    const Attempt attempt(message(7));
    http::tellObserver(answered);
    QVERIFY(attempt.facts().isEmpty());
    http::ExchangeReport report = answered;
    report.host = u"bank.example"_s;
    report.certificatePath = u"/certs/till.p12"_s;
    report.certificateEnd = QDateTime::fromMSecsSinceEpoch(1'800'000'000'000, Qt::UTC);
    report.clockDifference = std::chrono::seconds(-7);
    http::tellObserver(report);
    QStringList facts;
    for (const Fact &fact : attempt.facts())
        facts.append(u"%1 %2 %3"_s.arg(fact.name, fact.subject, fact.value));
    QCOMPARE(facts, (QStringList{u"certificate /certs/till.p12 1800000000000"_s,
                                 u"clock bank.example -7"_s}));
    QVERIFY(attempt.facts().first().time <= QDateTime::currentDateTimeUtc());
}

QTEST_GUILESS_MAIN(TestAttempt)
#include "tst_attempt.moc"
