#include "tests/tools/queuectl/page/hostiletexts.h"
#include "tests/tools/queuectl/page/htmlreader.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/page/html.h"
#include "tools/queuectl/page/page.h"

#include <QRegularExpression>
#include <QtTest>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

PageValues emptyPage()
{
    const QDateTime now(QDate(2026, 11, 22), QTime(14, 10));
    return PageValues(TimeScale(now.addDays(-7), now));
}

/// A page with `text` wherever a row, a reply, a file or a setting may have put one.
PageValues pageWith(const QString &text)
{
    PageValues page = emptyPage();
    const QDateTime now = page.scale.end();
    page.host = text;
    page.journalBegin = now.addDays(-1);
    page.waiting = 3;
    page.waitingCauses = {{Cause::Network, {1, 0, 2, 0}, 3, 7000}};
    page.waitingTypes = {{text, Cause::Network, 3, 7000}};
    ShapeDestination destination;
    destination.address = text;
    destination.types = {text};
    destination.count = 3;
    page.destinations = {destination, ShapeDestination()};
    page.concerns = {{Concern::Kind::Old, text, 1, text}};
    TypeFlow type;
    type.type = text;
    type.flow = Flow(page.scale.count());
    type.flow.delivered[3] = 5;
    type.flow.failed[4] = 1;
    type.flow.dropped[5] = 1;
    type.failingSince = now.addSecs(-600);
    page.types = {type};
    page.flow = type.flow;
    page.addresses = {{text, text}};
    page.outages = {{text, now.addDays(-2), now.addDays(-1), false, 4},
                    {text, now.addSecs(-700), now, true, 1}};
    page.dropped = {{17, text, text, 2, now.addDays(-1), Cause::Request, text}};
    page.settings = {{text, text}};
    page.versions = {text};
    return page;
}

double channel(const QString &hex)
{
    const double value = hex.toInt(nullptr, 16) / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

/// The relative luminance of `#rrggbb`.
double luminance(const QString &colour)
{
    return 0.2126 * channel(colour.mid(1, 2)) + 0.7152 * channel(colour.mid(3, 2))
           + 0.0722 * channel(colour.mid(5, 2));
}

double contrast(const QString &a, const QString &b)
{
    const double first = luminance(a) + 0.05;
    const double second = luminance(b) + 0.05;
    return std::max(first, second) / std::min(first, second);
}

} // namespace

/// The page that is made of values.
class TestReportPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void hostileTextsStayTexts_data();
    void hostileTextsStayTexts();
    void nothingIsLoaded();
    void imagesHaveWords();
    void emptyElementsHaveTwoTags();
    void sectionsOfAnEmptyTill();
    void faultsAreTold();
    void whatIsLeftOutIsCounted();
    void chartShowsEachColumn();
    void contrasts();
};

void TestReportPage::initTestCase()
{
    qputenv("LC_ALL", "C.UTF-8");
}

void TestReportPage::hostileTextsStayTexts_data()
{
    QTest::addColumn<QString>("text");
    int number = 0;
    const QStringList texts = hostileTexts();
    for (const QString &text : texts)
        QTest::addRow("%d: %s", ++number, qPrintable(text.left(12).simplified())) << text;
}

void TestReportPage::hostileTextsStayTexts()
{
    QFETCH(const QString, text);
    const HtmlPage plain = readHtml(renderPage(pageWith(u"plain"_s)));
    const HtmlPage page = readHtml(renderPage(pageWith(text)));
    QCOMPARE(page.fault, QString());
    QCOMPARE(page.elements, plain.elements);
    QCOMPARE(page.attributes.size(), plain.attributes.size());
    // What can be seen of it: in the title, the header, and at 15 places more.
    QString seen = escaping::escaped(QString::fromUtf8(text.toUtf8()), escaping::Newlines::Kept);
    for (const char16_t letter : {u'\ufffe', u'\uffff'})
        seen.replace(QChar(letter), QChar::ReplacementCharacter);
    QVERIFY2(page.text.count(seen) >= 15, qPrintable(QString::number(page.text.count(seen))));
    for (const QChar letter : page.text) {
        const bool isHidden = (letter < u' ' && letter != u'\n') || letter == QChar(0x202e)
                              || letter == QChar(0x2067) || letter == QChar(0x200b);
        QVERIFY2(!isHidden, qPrintable(QString::number(letter.unicode(), 16)));
    }
}

void TestReportPage::nothingIsLoaded()
{
    const QString address = u"https://evil.example/x.js"_s;
    const HtmlPage page = readHtml(renderPage(pageWith(address)));
    QCOMPARE(page.fault, QString());
    const QStringList harmless{
        u"html"_s,    u"head"_s,    u"meta"_s,         u"title"_s,   u"style"_s,
        u"body"_s,    u"header"_s,  u"main"_s,         u"section"_s, u"footer"_s,
        u"h1"_s,      u"h2"_s,      u"h3"_s,           u"p"_s,       u"div"_s,
        u"span"_s,    u"bdi"_s,     u"ul"_s,           u"li"_s,      u"dl"_s,
        u"dt"_s,      u"dd"_s,      u"pre"_s,          u"table"_s,   u"thead"_s,
        u"tbody"_s,   u"tr"_s,      u"th"_s,           u"td"_s,      u"svg"_s,
        u"desc"_s,    u"rect"_s,    u"line"_s,         u"path"_s,    u"text"_s,
        u"details"_s, u"summary"_s, u"foreignObject"_s};
    for (const QString &element : page.elements)
        QVERIFY2(harmless.contains(element), qPrintable(element));
    for (const QString &attribute : page.attributes) {
        QVERIFY2(!attribute.contains(u"//"_s) && !attribute.contains(u"url("_s)
                     && !attribute.startsWith(u"on"_s) && !attribute.startsWith(u"href"_s)
                     && !attribute.startsWith(u"src"_s) && !attribute.startsWith(u"style"_s),
                 qPrintable(attribute));
    }
    for (const QString &word : {u"url("_s, u"@import"_s, u"//"_s, u"<"_s, u">"_s, u"&"_s, u"\""_s})
        QVERIFY2(!page.style.contains(word), qPrintable(word));
    QVERIFY(page.attributes.contains(u"content=default-src 'none'; style-src 'unsafe-inline'"_s));
}

void TestReportPage::imagesHaveWords()
{
    const QByteArray bytes = renderPage(pageWith(u"heineken"_s));
    const HtmlPage page = readHtml(bytes);
    QCOMPARE(page.images, 4);
    QCOMPARE(page.imagesWithoutWords, 0);
    QCOMPARE(page.attributes.filter(QRegularExpression(u"^role=img$"_s)).size(), 4);
    // The words of a chart are found by their names.
    static const QRegularExpression labels(u"^aria-labelledby=(\\S+) (\\S+)$"_s);
    for (const QString &attribute : page.attributes.filter(labels)) {
        const QRegularExpressionMatch match = labels.match(attribute);
        QCOMPARE(page.attributes.count(u"id="_s + match.captured(1)), 1);
        QCOMPARE(page.attributes.count(u"id="_s + match.captured(2)), 1);
    }
    QVERIFY(page.text.contains(u"delivered: 5, first attempt failed: 1, dropped: 1"_s));
    QVERIFY(page.text.contains(u"up to 10 min: 1, 10 min to 1 h: 0, 1 h to 1 d: 2"_s));
}

/// HTML takes `<td/>` for the beginning of a cell.
void TestReportPage::emptyElementsHaveTwoTags()
{
    QByteArray bytes;
    {
        Html html(bytes);
        html.open("table");
        html.element("td", QString());
        html.close();
    }
    QVERIFY2(bytes.contains("<td></td>"), bytes.constData());
    static const QRegularExpression closed(u"<(\\w+)[^<>]*/>"_s);
    const QString page = QString::fromUtf8(renderPage(pageWith(QString())));
    auto found = closed.globalMatch(page);
    while (found.hasNext())
        QCOMPARE(found.next().captured(1), u"meta"_s);
}

void TestReportPage::sectionsOfAnEmptyTill()
{
    const HtmlPage page = readHtml(renderPage(emptyPage()));
    QCOMPARE(page.fault, QString());
    QCOMPARE(page.elements.count(u"section"_s), 7);
    QCOMPARE(page.images, 0);
    for (const QString &sentence :
         {u"Nothing was tried in this time."_s, u"Nothing waits."_s,
          u"Each one was there all the time."_s, u"Nothing was dropped."_s,
          u"The service does not answer on its port."_s, u"the defaults hold"_s})
        QVERIFY2(page.text.contains(sentence), qPrintable(sentence));
}

void TestReportPage::faultsAreTold()
{
    PageValues page = emptyPage();
    page.journalFault = u"The journal is gone."_s;
    page.databaseFault = u"The database is gone."_s;
    const HtmlPage shown = readHtml(renderPage(page));
    QCOMPARE(shown.text.count(page.journalFault), 4);
    QCOMPARE(shown.text.count(page.databaseFault), 2);
    QVERIFY(!shown.text.contains(u"Nothing was dropped."_s));
    QVERIFY(!shown.text.contains(u"Nothing waits."_s));
    QVERIFY(!shown.text.contains(u"Each one was there"_s));
    QCOMPARE(shown.text.count(u"not known"_s), 5);
}

void TestReportPage::whatIsLeftOutIsCounted()
{
    PageValues page = pageWith(u"heineken"_s);
    QVERIFY(!QString::fromUtf8(renderPage(page)).contains(u"Not shown"_s));
    page.furtherConcerns = 1001;
    page.furtherTypes = 1002;
    page.furtherWaitingTypes = 1003;
    page.furtherDestinations = 1004;
    page.furtherOutages = 1005;
    page.furtherDropped = 1006;
    const QString text = readHtml(renderPage(page)).text;
    for (int number = 1; number <= 6; ++number) {
        const QString sentence = u"Not shown: 1\u00a000%1 more."_s.arg(number);
        QVERIFY2(text.contains(sentence), qPrintable(sentence));
    }
}

void TestReportPage::chartShowsEachColumn()
{
    PageValues page = pageWith(u"heineken"_s);
    page.flow = Flow(page.scale.count());
    page.flow.delivered[3] = 200;
    page.flow.delivered[4] = 50;
    page.flow.delivered[5] = 1;
    const QString html = QString::fromUtf8(renderPage(page));
    const QString form = u"yyyy-MM-dd HH:mm"_s;
    // The lane is 96 high; the least column is still seen.
    const QList<std::pair<int, QString>> wanted{{3, u"96"_s}, {4, u"24"_s}, {5, u"2"_s}};
    for (const auto &[part, height] : wanted) {
        const QRegularExpression column(
            u"<rect x=\"%1%\" [^>]*height=\"%2\" class=\"good\"><title>%3: "_s.arg(
                QString::number(std::round(page.scale.position(page.scale.edge(part)) * 10'000)
                                / 100),
                height, page.scale.edge(part).toString(form)));
        QCOMPARE(html.count(column), 1);
    }
    QCOMPARE(html.count(u"class=\"good\"><title>"_s), 3);
    QVERIFY(html.contains(u">max 200<"_s));
}

void TestReportPage::contrasts()
{
    const QString style = readHtml(renderPage(emptyPage())).style;
    const QStringList schemes = style.split(u"prefers-color-scheme: dark"_s);
    QCOMPARE(schemes.size(), 2);
    for (const QString &scheme : schemes) {
        static const QRegularExpression definition(u"--(\\w+): (#[0-9a-f]{6});"_s);
        QMap<QString, QString> colours;
        auto found = definition.globalMatch(scheme);
        while (found.hasNext()) {
            const QRegularExpressionMatch match = found.next();
            colours.insert(match.captured(1), match.captured(2));
        }
        QCOMPARE(colours.size(), 9);
        for (const QString &name :
             {u"text"_s, u"faint"_s, u"good"_s, u"careful"_s, u"bad"_s, u"plain"_s}) {
            for (const QString &ground : {u"page"_s, u"panel"_s})
                QVERIFY2(contrast(colours.value(name), colours.value(ground)) >= 4.5,
                         qPrintable(name + u" on "_s + ground));
        }
    }
}

QTEST_GUILESS_MAIN(TestReportPage)
#include "tst_reportpage.moc"
