#include "tools/stand/placeholders.h"
#include "tools/stand/scenarioerror.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace stand;

class TestPlaceholders : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void placesAreFilledIn();
    void unknownPlaceIsNamed();
};

void TestPlaceholders::placesAreFilledIn()
{
    const Places places{{u"http"_s, u"http://127.0.0.1:80"_s}, {u"http.port"_s, u"80"_s}};
    const QJsonObject scenario{
        {u"url"_s, u"{{http}}/a?b={{http.port}}"_s},
        {u"list"_s, QJsonArray{u"{{any}}"_s, 5, u"{{fill:3}}"_s}},
        {u"{{http.port}}"_s, u"{ {http} } {\"a\":{\"b\":1}}"_s},
    };
    const QJsonObject expected{
        {u"url"_s, u"http://127.0.0.1:80/a?b=80"_s},
        {u"list"_s, QJsonArray{u"{{any}}"_s, 5, u"xxx"_s}},
        {u"80"_s, u"{ {http} } {\"a\":{\"b\":1}}"_s},
    };
    QCOMPARE(expanded(scenario, places, u"x.json"_s).toObject(), expected);
}

void TestPlaceholders::unknownPlaceIsNamed()
{
    try {
        expanded(u"a {{htpp}} b"_s, Places{{u"http"_s, u"x"_s}}, u"x.json"_s);
        QFAIL("must throw");
    } catch (const ScenarioError &error) {
        QCOMPARE(error.text(),
                 u"x.json: unknown placeholder {{htpp}}; known are http, and the patterns"_s);
    }
}

QTEST_GUILESS_MAIN(TestPlaceholders)
#include "tst_placeholders.moc"
