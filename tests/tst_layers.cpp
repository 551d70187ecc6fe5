#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// A folder with files, and the other folders whose headers its files may include. The tree is
/// listed from the top down; a name means the folder itself, without its subfolders.
struct Layer
{
    QString folder;
    QStringList below;
};

const QStringList text{u"shared/text"_s};
const QStringList core = text + QStringList{u"shared/core"_s};
const QStringList net = core + QStringList{u"shared/net"_s};
const QStringList ground = net + QStringList{u"shared/document"_s};
const QStringList common = ground + QStringList{u"engine"_s};
const QStringList handler = common + QStringList{u"handlers/common"_s};
const QStringList service =
    handler
    + QStringList{
        u"handlers"_s,         u"handlers/apmindbox"_s,   u"handlers/forwarding"_s,
        u"handlers/loyalty"_s, u"handlers/loyalty/mfg"_s, u"handlers/mindbox"_s,
        u"handlers/other"_s,   u"handlers/payment"_s,     u"handlers/payment/atolpay"_s,
        u"handlers/retail"_s,
    };

// clang-format off
const QList<Layer> house{
    {u"app"_s,                      service},
    {u"handlers"_s,                 service},
    // A group may include its own subfolders and no other group; code for several groups is in
    // common.
    {u"handlers/mindbox"_s,         handler},
    {u"handlers/apmindbox"_s,       handler},
    {u"handlers/loyalty"_s,         handler + QStringList{u"handlers/loyalty/mfg"_s}},
    {u"handlers/loyalty/mfg"_s,     handler},
    {u"handlers/payment"_s,         handler + QStringList{u"handlers/payment/atolpay"_s}},
    {u"handlers/payment/atolpay"_s, handler},
    {u"handlers/retail"_s,          handler},
    {u"handlers/other"_s,           handler},
    {u"handlers/forwarding"_s,      handler},
    {u"handlers/common"_s,          common},
    {u"engine"_s,                   ground},
    {u"shared/document"_s,          net},
    {u"shared/net"_s,               core},
    {u"shared/core"_s,              text},
    {u"shared/log4qt"_s,            text},
    {u"shared/text"_s,              {}},
};
// clang-format on

const QStringList wholeHouse{u"app"_s, u"handlers"_s, u"engine"_s, u"shared"_s};

// clang-format off
/// The folders beside the house; nothing in the house includes them. Here a name means the folder
/// and its subfolders.
const QList<Layer> besideTheHouse{
    {u"tests"_s,           wholeHouse + QStringList{u"rig"_s, u"tools"_s}},
    {u"benchmarks"_s,      wholeHouse + QStringList{u"rig"_s}},
    {u"tools/queuectl"_s,  wholeHouse + QStringList{u"tools/catalogue"_s, u"tools/settings"_s}},
    {u"tools/stand"_s,     {u"rig"_s}},
    {u"tools/catalogue"_s, {}},
    // It includes the headers that declare settings, and links only shared/core.
    {u"tools/settings"_s,  wholeHouse},
    {u"tools/messagetypes"_s, {u"tools/catalogue"_s, u"tools/stand"_s}},
    {u"rig"_s,             {u"shared"_s}},
};
// clang-format on

bool isIn(const QString &folder, const QString &top)
{
    return folder == top || folder.startsWith(top + u'/');
}

/// The row of `folder`; null for one of the house.
const Layer *besideLayerOf(const QString &folder)
{
    for (const Layer &layer : besideTheHouse) {
        if (isIn(folder, layer.folder))
            return &layer;
    }
    return nullptr;
}

QString folderOf(const QString &file)
{
    return file.contains(u'/') ? file.section(u'/', 0, -2) : QString();
}

const Layer *layerOf(const QString &folder)
{
    for (const Layer &layer : house) {
        if (layer.folder == folder)
            return &layer;
    }
    return nullptr;
}

QString sourceDir()
{
    return QStringLiteral(QUEUE_SOURCE_DIR);
}

bool existsInTree(const QString &path)
{
    return QFile::exists(sourceDir() + u'/' + path);
}

/// What is wrong with `file` including `included`, empty when nothing is.
QString fault(const QString &file, const QString &included, bool inQuotes)
{
    const QString folder = folderOf(file);
    // This folder replaces a library, and its headers are included by that library's names.
    const bool inSlice = (folder + u'/').startsWith(u"shared/log4qt/");
    if (included.startsWith(u"log4qt/") && inQuotes != inSlice)
        return u"the logger is included as <log4qt/...>"_s;
    if (included.startsWith(u"log4qt/"))
        return {};
    if (inQuotes && included.endsWith(u".moc") && !included.contains(u'/'))
        return {};
    if (!inQuotes)
        return existsInTree(included) ? u"a header of ours is included in quotes"_s : QString();
    if (!existsInTree(included))
        return u"no such file from the root of the project"_s;

    const QString target = folderOf(included);
    if (target == folder)
        return {};
    if (const Layer *beside = besideLayerOf(folder)) {
        const QStringList known = beside->below + QStringList{beside->folder};
        const bool isKnown = std::any_of(known.begin(), known.end(),
                                         [&](const QString &top) { return isIn(target, top); });
        return isKnown ? QString() : u"%1 does not know %2"_s.arg(beside->folder, target);
    }
    const Layer *layer = layerOf(folder);
    if (!layer)
        return u"the folder %1 has no place in the house"_s.arg(folder);
    if (!layer->below.contains(target))
        return u"%1 does not know %2"_s.arg(folder, target);
    return {};
}

struct Include
{
    int line = 0;
    QString path;
    bool inQuotes = false;
};

QList<Include> includesOf(const QString &path)
{
    static const QRegularExpression pattern(uR"(^\s*#\s*include\s*([<"])([^>"]+)[>"])"_s);
    QList<Include> result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return result;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch match = pattern.match(lines[i]);
        if (match.hasMatch())
            result.append({i + 1, match.captured(2), match.captured(1) == u"\""});
    }
    return result;
}

/// The sources of the project by their path from its root.
QStringList sources()
{
    QStringList result;
    const QStringList tops{u"app"_s,   u"handlers"_s, u"engine"_s, u"shared"_s,
                           u"tools"_s, u"rig"_s,      u"tests"_s,  u"benchmarks"_s};
    for (const QString &top : tops) {
        QDirIterator files(sourceDir() + u'/' + top, {u"*.h"_s, u"*.cpp"_s}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = QDir(sourceDir()).relativeFilePath(files.next());
            // Replaces headers that an outside package installs.
            if (!path.startsWith(u"tests/shared/log4qt/package/"))
                result.append(path);
        }
    }
    result.sort();
    return result;
}

} // namespace

/// Compares the includes of every file with the picture of the house: arrows point downwards only.
class TestLayers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rule_data();
    void rule();
    void arrowsRunDownwards();
    void everyIncludeFollowsAnArrow();
};

void TestLayers::rule_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("included");
    QTest::addColumn<bool>("inQuotes");
    QTest::addColumn<QString>("expected");

    const bool quotes = true;
    const bool angles = false;
    // clang-format off
    QTest::newRow("down")            << u"shared/net/x.cpp"_s     << u"shared/core/tr.h"_s    << quotes << QString();
    QTest::newRow("same folder")     << u"shared/core/x.cpp"_s    << u"shared/core/tr.h"_s    << quotes << QString();
    QTest::newRow("Qt")              << u"shared/core/x.cpp"_s    << u"QString"_s             << angles << QString();
    QTest::newRow("own moc")         << u"tests/x.cpp"_s          << u"x.moc"_s               << quotes << QString();
    QTest::newRow("logger")          << u"engine/x.cpp"_s         << u"log4qt/logger.h"_s     << angles << QString();
    QTest::newRow("test of a class") << u"tests/shared/x.cpp"_s   << u"shared/core/tr.h"_s    << quotes << QString();
    QTest::newRow("up")              << u"shared/log4qt/x.cpp"_s  << u"shared/core/tr.h"_s    << quotes << u"shared/log4qt does not know shared/core"_s;
    QTest::newRow("up to the engine") << u"shared/net/x.cpp"_s    << u"engine/dao.h"_s        << quotes << u"shared/net does not know engine"_s;
    QTest::newRow("another group")   << u"handlers/retail/x.cpp"_s << u"handlers/forwarding/heinekenhandler.h"_s << quotes << u"handlers/retail does not know handlers/forwarding"_s;
    QTest::newRow("own subfolder")   << u"handlers/loyalty/x.cpp"_s << u"handlers/loyalty/mfg/interface.h"_s << quotes << QString();
    QTest::newRow("up to the group") << u"handlers/loyalty/mfg/x.cpp"_s << u"handlers/loyalty/mfghandler.h"_s << quotes << u"handlers/loyalty/mfg does not know handlers/loyalty"_s;
    QTest::newRow("inside the slice") << u"shared/log4qt/helpers/x.cpp"_s << u"log4qt/logger.h"_s << quotes << QString();
    QTest::newRow("to the tests")    << u"shared/core/x.cpp"_s    << u"tests/support/queuedatabase.h"_s << quotes << u"shared/core does not know tests/support"_s;
    QTest::newRow("tool to tests")   << u"tools/stand/x.cpp"_s    << u"tests/support/queuedatabase.h"_s << quotes << u"tools/stand does not know tests/support"_s;
    QTest::newRow("test to a tool")  << u"tests/tools/stand/x.cpp"_s << u"tools/stand/scenario.h"_s << quotes << QString();
    QTest::newRow("test to the rig") << u"tests/engine/x.cpp"_s   << u"rig/mariadbserver.h"_s << quotes << QString();
    QTest::newRow("bench to the rig") << u"benchmarks/x.cpp"_s    << u"rig/mariadbserver.h"_s << quotes << QString();
    QTest::newRow("bench to a test") << u"benchmarks/x.cpp"_s     << u"tests/faults/form.h"_s << quotes << u"benchmarks does not know tests/faults"_s;
    QTest::newRow("bench to a tool") << u"benchmarks/x.cpp"_s     << u"tools/stand/scenario.h"_s << quotes << u"benchmarks does not know tools/stand"_s;
    QTest::newRow("stand to the rig") << u"tools/stand/x.cpp"_s   << u"rig/scriptedpeer.h"_s << quotes << QString();
    QTest::newRow("stand to the service") << u"tools/stand/x.cpp"_s << u"engine/dao.h"_s << quotes << u"tools/stand does not know engine"_s;
    QTest::newRow("rig to the ground") << u"rig/x.cpp"_s          << u"shared/core/tr.h"_s << quotes << QString();
    QTest::newRow("rig to the engine") << u"rig/x.cpp"_s          << u"engine/dao.h"_s << quotes << u"rig does not know engine"_s;
    QTest::newRow("rig to the stand") << u"rig/x.cpp"_s           << u"tools/stand/scenario.h"_s << quotes << u"rig does not know tools/stand"_s;
    QTest::newRow("tool to a tool")  << u"tools/catalogue/x.cpp"_s << u"tools/stand/scenario.h"_s << quotes << u"tools/catalogue does not know tools/stand"_s;
    QTest::newRow("settings to a tool") << u"tools/settings/x.cpp"_s << u"tools/queuectl/command.h"_s << quotes << u"tools/settings does not know tools/queuectl"_s;
    QTest::newRow("service to the rig") << u"app/x.cpp"_s         << u"rig/messagetable.h"_s << quotes << u"app does not know rig"_s;
    QTest::newRow("new folder")      << u"shared/new/x.cpp"_s     << u"shared/core/tr.h"_s    << quotes << u"the folder shared/new has no place in the house"_s;
    QTest::newRow("not from root")   << u"shared/core/x.cpp"_s    << u"tr.h"_s                << quotes << u"no such file from the root of the project"_s;
    QTest::newRow("angle brackets")  << u"shared/net/x.cpp"_s     << u"shared/core/tr.h"_s    << angles << u"a header of ours is included in quotes"_s;
    QTest::newRow("quoted logger")   << u"engine/x.cpp"_s         << u"log4qt/logger.h"_s     << quotes << u"the logger is included as <log4qt/...>"_s;
    // clang-format on
}

void TestLayers::rule()
{
    QFETCH(QString, file);
    QFETCH(QString, included);
    QFETCH(bool, inQuotes);
    QFETCH(QString, expected);

    QCOMPARE(fault(file, included, inQuotes), expected);
}

void TestLayers::arrowsRunDownwards()
{
    // The table is ordered: every arrow points to a later row, except for the table of handlers,
    // which includes the folders below it and is included only by app.
    for (qsizetype i = 0; i < house.size(); ++i) {
        for (const QString &target : house[i].below) {
            if (target == house[i].folder)
                continue;
            const Layer *layer = layerOf(target);
            QVERIFY2(layer, qPrintable(target));
            QVERIFY2(layer - &house[0] > i, qPrintable(house[i].folder + u" -> "_s + target));
        }
    }
}

void TestLayers::everyIncludeFollowsAnArrow()
{
    const QStringList files = sources();
    QVERIFY(files.contains(u"shared/core/tr.h"));

    QStringList faults;
    int count = 0;
    for (const QString &file : files) {
        for (const Include &include : includesOf(sourceDir() + u'/' + file)) {
            ++count;
            const QString wrong = fault(file, include.path, include.inQuotes);
            if (!wrong.isEmpty())
                faults.append(
                    u"%1:%2: \"%3\": %4"_s.arg(file).arg(include.line).arg(include.path, wrong));
        }
    }
    QVERIFY2(count > files.size() / 2, "hardly any include was found");
    QVERIFY2(faults.isEmpty(), qPrintable(u'\n' + faults.join(u'\n')));
}

QTEST_GUILESS_MAIN(TestLayers)
#include "tst_layers.moc"
