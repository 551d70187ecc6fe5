#include "tests/faults/form.h"

#include <QtTest>

/// The two forms of the fault tests, chosen by the environment.
class TestForm : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { asked = qgetenv("QUEUE_FAULTS"); }
    void cleanup() { qputenv("QUEUE_FAULTS", asked); }

    void onlyTheWordLongAsksForTheLongForm()
    {
        qputenv("QUEUE_FAULTS", "long");
        QVERIFY(faults::longForm());
        QCOMPARE(faults::count(20, 200), 200);
        for (const char *other : {"", "short", "LONG"}) {
            qputenv("QUEUE_FAULTS", other);
            QVERIFY(!faults::longForm());
            QCOMPARE(faults::count(20, 200), 20);
        }
    }

private:
    QByteArray asked;
};

QTEST_APPLESS_MAIN(TestForm)
#include "tst_form.moc"
