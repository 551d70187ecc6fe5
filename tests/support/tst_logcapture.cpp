#include "tests/support/logcapture.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QTest>
#include <QTranslator>

#include <thread>

using namespace Qt::StringLiterals;

class TestLogCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void collectsItsCategoryFromTraceUp();
    void collectsEveryCategory();
    void leavesOutTheLibrarysOwnEvents();
    void namesLevelsInAnyLanguage();
    void leavesTheLoggerAsItWas();
    void threadsTakeTurns();
};

void TestLogCapture::collectsItsCategoryFromTraceUp()
{
    LogCapture log(u"cardlab"_s);
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"cardlab"_s);
    logger->trace(u"один"_s);
    logger->debug(u"два"_s);
    logger->info(u"три: %1"_s, 3);
    logger->warn(u"четыре: %1 из %2"_s, 4, u"пяти"_s);
    logger->error(u"пять"_s);
    Log4Qt::LogManager::logger(u"iturup"_s)->error(u"чужая"_s);
    QCOMPARE(log.lines(), (QStringList{u"TRACE один"_s, u"DEBUG два"_s, u"INFO три: 3"_s,
                                       u"WARN четыре: 4 из пяти"_s, u"ERROR пять"_s}));
    log.clear();
    QCOMPARE(log.lines(), QStringList());
}

void TestLogCapture::collectsEveryCategory()
{
    LogCapture log;
    Log4Qt::LogManager::logger(u"iturup"_s)->trace(u"один"_s);
    Log4Qt::LogManager::logger(u"made only now"_s)->trace(u"два"_s);
    QCOMPARE(log.lines(), (QStringList{u"TRACE один"_s, u"TRACE два"_s}));
}

void TestLogCapture::leavesOutTheLibrarysOwnEvents()
{
    LogCapture log;
    Log4Qt::LogManager::logger(u"::LoggerRepository"_s)->error(u"Shutting down Hierarchy"_s);
    Log4Qt::LogManager::logger(u"cardlab"_s)->info(u"текст"_s);
    QCOMPARE(log.lines(), QStringList{u"INFO текст"_s});
}

namespace {

/// A language in which every text is different.
struct Translation : QTranslator
{
    Translation() { QCoreApplication::installTranslator(this); }
    ~Translation() override { QCoreApplication::removeTranslator(this); }
    bool isEmpty() const override { return false; }
    QString translate(const char *, const char *text, const char *, int) const override
    {
        return u"translated "_s + QString::fromUtf8(text);
    }
};

} // namespace

void TestLogCapture::namesLevelsInAnyLanguage()
{
    const Translation translation;
    LogCapture log(u"cardlab"_s);
    Log4Qt::LogManager::logger(u"cardlab"_s)->trace(u"текст"_s);
    Log4Qt::LogManager::logger(u"cardlab"_s)->info(u"текст"_s);
    QCOMPARE(log.lines(), (QStringList{u"TRACE текст"_s, u"INFO текст"_s}));
}

void TestLogCapture::leavesTheLoggerAsItWas()
{
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"cardlab"_s);
    const bool wasTrace = logger->isTraceEnabled();
    LogCapture outer;
    {
        LogCapture inner(u"cardlab"_s);
        logger->info(u"внутри"_s);
        QCOMPARE(inner.lines(), QStringList{u"INFO внутри"_s});
    }
    QCOMPARE(outer.lines(), QStringList());
    logger->info(u"снаружи"_s);
    QCOMPARE(outer.lines(), QStringList{u"INFO снаружи"_s});
    QVERIFY(!wasTrace);
    QCOMPARE(logger->level().toInt(), int(Log4Qt::Level::NULL_INT));
}

void TestLogCapture::threadsTakeTurns()
{
    LogCapture log(u"cardlab"_s);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int line = 0; line < 250; ++line)
                Log4Qt::LogManager::logger(u"cardlab"_s)->info(u"строка"_s);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(log.lines().size(), 1000);
}

QTEST_GUILESS_MAIN(TestLogCapture)
#include "tst_logcapture.moc"
