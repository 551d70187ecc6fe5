#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/page/reportsample.h"
#include "tests/tools/queuectl/till.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

/// With a folder in QUEUE_PICTURES the pictures stay there to be looked at.
QString pictureFolder(const QTemporaryDir &temporary)
{
    const QString wanted = qEnvironmentVariable("QUEUE_PICTURES");
    if (wanted.isEmpty())
        return temporary.path();
    QDir().mkpath(wanted);
    return wanted;
}

QString browser()
{
    return QStandardPaths::findExecutable(u"chromium"_s);
}

enum class Scheme
{
    Light,
    Dark,
};

/// Runs the browser to its end; what it printed.
QByteArray browse(const QString &profile, Scheme scheme, const QStringList &arguments)
{
    QProcess process;
    process.start(browser(), QStringList{u"--headless=new"_s, u"--no-sandbox"_s, u"--disable-gpu"_s,
                                         u"--disable-dev-shm-usage"_s, u"--no-first-run"_s,
                                         u"--disable-background-networking"_s,
                                         u"--hide-scrollbars"_s, u"--user-data-dir="_s + profile,
                                         u"--blink-settings=preferredColorScheme=%1"_s.arg(
                                             scheme == Scheme::Dark ? 0 : 1)}
                                 + arguments);
    constexpr int limitMs = 60'000;
    if (!process.waitForFinished(limitMs)) {
        process.kill();
        process.waitForFinished();
        qWarning("the browser does not end");
        return {};
    }
    return process.readAllStandardOutput();
}

/// What the browser made of a page.
struct Measured
{
    /// Of the content.
    int width = -1;
    int height = -1;
    int sections = 0;
    /// The lightness of the ground, 0 to 255.
    int ground = -1;
    /// Elements that reach beyond the window.
    QStringList tooWide;
    /// Pairs of words in one chart that cover each other.
    int covered = -1;
};

} // namespace

/// The page as a browser shows it.
class TestReportBrowser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void fitsTheScreen_data();
    void fitsTheScreen();
    void takesNoOtherWidth();
    void pictureOfTheReadme();

private:
    QString makePage(const QString &language, bool isHostile);
    Measured measure(const QString &page, int width, Scheme scheme);
    QString takePicture(const QString &page, const QString &name, int width, int height,
                        Scheme scheme);

    QTemporaryDir folder;
};

void TestReportBrowser::initTestCase()
{
    if (browser().isEmpty())
        QSKIP("chromium is not installed (scripts/install-packages packages-browser)");
}

QString TestReportBrowser::makePage(const QString &language, bool isHostile)
{
    Till till;
    {
        JournalFixture journal(till.database.root());
        if (isHostile)
            fillWithHostileTexts(till, journal);
        else
            fillWithAWeek(till, journal);
    }
    const QString path =
        folder.filePath(u"%1-%2.html"_s.arg(language, isHostile ? u"hostile"_s : u"week"_s));
    const CommandResult result =
        till.run({u"report"_s, u"--html"_s, path}, {}, {{u"LC_ALL"_s, language + u".UTF-8"_s}});
    if (result.exitCode != 0)
        qWarning("%s", qPrintable(result.err));
    return path;
}

/// The page in a window of that width; a page of our own around it measures it.
Measured TestReportBrowser::measure(const QString &page, int width, Scheme scheme)
{
    QFile wrapper(folder.filePath(u"wrapper.html"_s));
    if (!wrapper.open(QIODevice::WriteOnly))
        return {};
    wrapper.write(
        u"<!DOCTYPE html><iframe style='border:0' width=%1 height=800 src='%2'></iframe>"
        "<output></output><script>onload = () => {"
        "const page = document.querySelector('iframe').contentDocument;"
        "const all = [...page.querySelectorAll('body *')];"
        // The heads of narrow tables are cut away, for those alone who do not see the page.
        "const wide = all.filter(e => (e.getBoundingClientRect().right > %1.5"
        " || (e.clientWidth > 0 && !e.closest('svg') && e.scrollWidth > e.clientWidth + 1))"
        " && !(e.closest('thead') && %1 < 700));"
        "const boxes = [...page.querySelectorAll('.chart')].map(chart =>"
        " [...chart.querySelectorAll('text, span')].map(e => e.getBoundingClientRect())"
        "  .filter(box => box.width > 0));"
        "const covered = boxes.flatMap(row => row.flatMap((a, at) => row.slice(at + 1).filter(b =>"
        " Math.min(a.right, b.right) - Math.max(a.left, b.left) > 1"
        " && Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > 1)));"
        "const ground = getComputedStyle(page.body).backgroundColor.match(/\\d+/g);"
        "document.querySelector('output').textContent = '[' + [page.documentElement.scrollWidth,"
        "page.documentElement.scrollHeight, page.querySelectorAll('section').length, ground[1], "
        "covered.length, wide.map(e => e.tagName).join(' ')].join(':') + ']' }</script>"_s
            .arg(QString::number(width), QFileInfo(page).fileName())
            .toUtf8());
    wrapper.close();
    const QString dom =
        QString::fromUtf8(browse(folder.filePath(u"profile"_s), scheme,
                                 {u"--allow-file-access-from-files"_s, u"--dump-dom"_s,
                                  u"--window-size=1400,900"_s, u"file://"_s + wrapper.fileName()}));
    const QStringList parts =
        dom.section(u"<output>["_s, 1).section(u"]</output>"_s, 0, 0).split(u':');
    if (parts.size() != 6)
        return {};
    return {parts[0].toInt(),
            parts[1].toInt(),
            parts[2].toInt(),
            parts[3].toInt(),
            parts[5].split(u' ', Qt::SkipEmptyParts),
            parts[4].toInt()};
}

/// The upper part of the page as a picture. Returns its file, or an empty text.
QString TestReportBrowser::takePicture(const QString &page, const QString &name, int width,
                                       int height, Scheme scheme)
{
    // A window of the browser cannot be narrower than 500; the page is shown within a wider one.
    QFile wrapper(folder.filePath(u"window.html"_s));
    if (!wrapper.open(QIODevice::WriteOnly))
        return {};
    wrapper.write(
        u"<!DOCTYPE html><body style='margin:0'><iframe style='border:0;display:block' "
        "width=%1 height=%2 scrolling=no src='%3'></iframe>"_s
            .arg(QString::number(width), QString::number(height), QFileInfo(page).fileName())
            .toUtf8());
    wrapper.close();
    const QString picture = pictureFolder(folder) + u'/' + name;
    browse(folder.filePath(u"profile"_s), scheme,
           {u"--screenshot="_s + picture,
            u"--window-size=%1,%2"_s.arg(std::max(500, width)).arg(height),
            u"file://"_s + wrapper.fileName()});
    QFile file(picture);
    const bool isPicture = file.open(QIODevice::ReadOnly) && file.read(8) == "\x89PNG\r\n\x1a\n";
    return isPicture && file.size() > 20'000 ? picture : QString();
}

void TestReportBrowser::fitsTheScreen_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("isHostile");
    for (const QString &language : {u"en_US"_s, u"ru_RU"_s}) {
        for (const bool isHostile : {false, true})
            QTest::addRow("%s, %s", qPrintable(language), isHostile ? "hostile texts" : "a week")
                << language << isHostile;
    }
}

void TestReportBrowser::fitsTheScreen()
{
    QFETCH(const QString, language);
    QFETCH(const bool, isHostile);
    const QString page = makePage(language, isHostile);
    // Texts take the same place in both.
    const QList<Scheme> schemes =
        isHostile ? QList<Scheme>{Scheme::Light} : QList<Scheme>{Scheme::Light, Scheme::Dark};
    for (const int width : {360, 1280}) {
        for (const Scheme scheme : schemes) {
            const Measured measured = measure(page, width, scheme);
            QCOMPARE(measured.tooWide, QStringList());
            QCOMPARE(measured.covered, 0);
            QCOMPARE(measured.width, width);
            QCOMPARE(measured.sections, 7);
            QVERIFY2(scheme == Scheme::Dark ? measured.ground < 60 : measured.ground > 200,
                     qPrintable(QString::number(measured.ground)));
            const QString name =
                u"%1-%2-%3.png"_s.arg(QFileInfo(page).baseName(), QString::number(width),
                                      scheme == Scheme::Dark ? u"dark"_s : u"light"_s);
            QVERIFY(!takePicture(page, name, width, measured.height, scheme).isEmpty());
        }
    }
}

/// The measuring finds a page that is too wide.
void TestReportBrowser::takesNoOtherWidth()
{
    QFile page(folder.filePath(u"wide.html"_s));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write("<!DOCTYPE html><body style='background:#fff'><p style='width:500px'>wide</p>");
    page.close();
    const Measured measured = measure(page.fileName(), 360, Scheme::Light);
    QCOMPARE(measured.tooWide, QStringList{u"P"_s});
    QVERIFY(measured.width > 360);
}

void TestReportBrowser::pictureOfTheReadme()
{
    const QString picture =
        takePicture(makePage(u"en_US"_s, false), u"readme.png"_s, 1000, 1180, Scheme::Light);
    QVERIFY(!picture.isEmpty());
    QVERIFY(QFileInfo(picture).size() < 150'000);
}

QTEST_GUILESS_MAIN(TestReportBrowser)
#include "tst_reportbrowser.moc"
