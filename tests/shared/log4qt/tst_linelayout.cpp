#include <log4qt/linelayout.h>

#include <QtTest>

#include <log4cplus/helpers/property.h>
#include <log4cplus/helpers/timehelper.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>
#include <sstream>

using namespace Qt::StringLiterals;

namespace {

/// 12:00:00 on 2026-02-01 in the till's time zone, plus these milliseconds.
log4cplus::helpers::Time noon(int seconds, int milliseconds)
{
    std::tm local = {};
    local.tm_year = 126;
    local.tm_mon = 1;
    local.tm_mday = 1;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    local.tm_sec = seconds;
    return log4cplus::helpers::from_time_t(std::mktime(&local))
           + std::chrono::milliseconds(milliseconds);
}

log4cplus::spi::InternalLoggingEvent event(const std::string &message,
                                           log4cplus::helpers::Time time)
{
    return {"handlers.cardlab",
            log4cplus::WARN_LOG_LEVEL,
            std::string(),
            {},
            message,
            "worker-7",
            std::string(),
            time,
            std::string(),
            -1};
}

std::string formatted(log4cplus::Layout &layout, const std::string &message,
                      log4cplus::helpers::Time time)
{
    std::ostringstream output;
    layout.formatAndAppend(output, event(message, time));
    return output.str();
}

} // namespace

/// The lines of the log: the values filled in here are those that the library would write.
class TestLineLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void patterns_data();
    void patterns();
    void patternsLikeTheLibrary_data();
    void patternsLikeTheLibrary();
    void timesThatFollowEachOther();
    void twoTimesInOneLine();
    void furtherLinesAreIndented_data();
    void furtherLinesAreIndented();
};

void TestLineLayout::patterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<std::string>("line");

    using std::string;
    // clang-format off
    QTest::newRow("default")         << u"%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n"_s << string("2026-02-01 12:00:00,042 WARN  [handlers.cardlab] text\n");
    QTest::newRow("time by name")    << u"%d{ABSOLUTE}"_s      << string("12:00:00,042");
    QTest::newRow("date by name")    << u"%d{DATE}"_s          << string("01 Feb 2026 12:00:00,042");
    QTest::newRow("ISO 8601")        << u"%d{ISO8601}"_s       << string("2026-02-01 12:00:00,042");
    QTest::newRow("ISO 8601, by the library") << u"%d{ISO8601} %c{1}"_s << string("2026-02-01 12:00:00,042 cardlab");
    QTest::newRow("time of its own") << u"%d"_s                << string("2026-02-01 12:00:00,042");
    QTest::newRow("no milliseconds") << u"%d{HH:mm}"_s         << string("12:00");
    QTest::newRow("percent in time") << u"%d{HH%q}"_s          << string("12%q");
    QTest::newRow("padded left")     << u"%6p|"_s              << string("  WARN|");
    QTest::newRow("padded right")    << u"%-6p|"_s             << string("WARN  |");
    QTest::newRow("cut")             << u"%.7c|"_s             << string("cardlab|");
    QTest::newRow("cut, not padded")  << u"%6.2t|"_s            << string("-7|");
    QTest::newRow("padded time")     << u"%-7d{HH:mm}|"_s      << string("12:00  |");
    QTest::newRow("thread")          << u"%t %m"_s             << string("worker-7 text");
    QTest::newRow("place vanishes")  << u"%F:%L %m"_s          << string(": text");
    QTest::newRow("only text")       << u"text"_s              << string("text");
    // The library fills this in.
    QTest::newRow("part of a name")  << u"%c{1}"_s             << string("cardlab");
    QTest::newRow("percent sign")    << u"%% %m"_s             << string("% text");
    // clang-format on
}

void TestLineLayout::patterns()
{
    QFETCH(const QString, pattern);
    QFETCH(const std::string, line);
    Log4Qt::backend::LineLayout layout(pattern);
    QCOMPARE(formatted(layout, "text", noon(0, 42)), line);
}

void TestLineLayout::patternsLikeTheLibrary_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<std::string>("library");

    using std::string;
    QTest::newRow("default") << u"%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n"_s
                             << string("%D{%Y-%m-%d %H:%M:%S,%q} %-5p [%c] %m%n");
    for (const char *same : {"%p%c%t%m%n", "%20p|%-20c|%20t|%-20m|", "%.3p|%.3c|%.3t|%.3m|",
                             "%5.3p|%-5.3c|%5.3t|%-5.3m|", "[%p] text %m", "%m %m"})
        QTest::newRow(same) << QString::fromLatin1(same) << string(same);
}

void TestLineLayout::patternsLikeTheLibrary()
{
    QFETCH(const QString, pattern);
    QFETCH(const std::string, library);
    log4cplus::helpers::Properties properties;
    properties.setProperty("ConversionPattern", library);
    log4cplus::PatternLayout theirs(properties);
    Log4Qt::backend::LineLayout ours(pattern);
    QCOMPARE(formatted(ours, "текст", noon(7, 999)), formatted(theirs, "текст", noon(7, 999)));
}

void TestLineLayout::timesThatFollowEachOther()
{
    Log4Qt::backend::LineLayout layout(u"%d{ss.zzz}"_s);
    const auto at = [&layout](int seconds, int milliseconds) {
        return formatted(layout, "", noon(seconds, milliseconds));
    };
    QCOMPARE(at(1, 0), std::string("01.000"));
    QCOMPARE(at(1, 7), std::string("01.007"));
    QCOMPARE(at(1, 123), std::string("01.123"));
    QCOMPARE(at(2, 5), std::string("02.005"));
    // A clock that was set back.
    QCOMPARE(at(1, 999), std::string("01.999"));
}

void TestLineLayout::twoTimesInOneLine()
{
    Log4Qt::backend::LineLayout layout(u"%d{HH:mm:ss} %d{zzz/zzz} %m"_s);
    for (int i = 0; i < 2; ++i)
        QCOMPARE(formatted(layout, "text", noon(3, 45)), std::string("12:00:03 045/045 text"));
}

void TestLineLayout::furtherLinesAreIndented_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::newRow("filled in here") << u"%p %m%n"_s;
    QTest::newRow("left to the library") << u"%p %c{1} %m%n"_s;
}

void TestLineLayout::furtherLinesAreIndented()
{
    QFETCH(const QString, pattern);
    Log4Qt::backend::LineLayout layout(pattern);
    const std::string line = formatted(layout, "one\ntwo\n", noon(0, 0));
    QVERIFY(line.ends_with(" one\n    two\n    \n"));
}

QTEST_APPLESS_MAIN(TestLineLayout)
#include "tst_linelayout.moc"
