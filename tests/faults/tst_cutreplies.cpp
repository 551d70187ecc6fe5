#include "handlers/handlertable.h"
#include "tests/faults/shop.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QTest>

using namespace Qt::StringLiterals;
using rig::PeerScript;

namespace {

/// Whether the type decides by the status alone, even when the rest of the answer is missing.
bool isFinal(const QString &type, int status)
{
    return (type == u"greenwichparkingticket" && status == 200)
           || (type == u"mfg" && (status == 200 || status == 400 || status == 500));
}

} // namespace

/// An answer that is cut off after its status counts as no answer: the row stays, except where
/// isFinal().
class TestCutReplies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        Log4Qt::LogManager::rootLogger()->setLevel(Log4Qt::Level(Log4Qt::Level::OFF_INT));
    }
    void everyType_data();
    void everyType();
};

void TestCutReplies::everyType_data()
{
    QTest::addColumn<stand::ScenarioSource>("source");
    QTest::addColumn<QString>("peer");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("status");
    QSet<QString> missing;
    for (const HandlerRow &row : handlerTable())
        missing.insert(QString::fromUtf16(row.type));
    const QList<stand::ScenarioSource> all = faults::scenarios();
    for (const stand::ScenarioSource &source : all) {
        if (!source.isSample())
            continue;
        for (const PeerScript &script : faults::scenarioOf(source).peers) {
            if (script.kind == PeerScript::Kind::Tcp)
                continue;
            for (int index = 0; index < script.exchanges.size(); ++index) {
                missing.remove(source.type());
                for (const int status : {200, 201, 400, 428, 500})
                    QTest::addRow("%s, %s %d, %d", qPrintable(source.title()),
                                  qPrintable(script.name), index + 1, status)
                        << source << script.name << index << status;
            }
        }
    }
    // These two talk over plain TCP and read no answer.
    QCOMPARE(missing, (QSet<QString>{u"dssl"_s, u"eps"_s}));
}

void TestCutReplies::everyType()
{
    QFETCH(stand::ScenarioSource, source);
    QFETCH(QString, peer);
    QFETCH(int, index);
    QFETCH(int, status);
    faults::Shop shop(source);
    for (PeerScript &script : shop.scripts()) {
        if (script.name != peer)
            continue;
        rig::Reply &reply = script.exchanges[index].reply;
        reply = {};
        reply.status = status;
        reply.headers.insert(u"Content-Length"_s, u"1000"_s);
        reply.cutAfter = 0;
    }
    shop.fill();
    QVERIFY(!shop.runPass());
    QVERIFY(shop.arrived() > index);
    QCOMPARE(shop.left(), isFinal(shop.type(), status) ? 0 : 1);
}

QTEST_GUILESS_MAIN(TestCutReplies)
#include "tst_cutreplies.moc"
