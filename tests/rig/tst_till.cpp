#include "rig/error.h"
#include "rig/till.h"

#include <QFile>
#include <QFileInfo>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::Error;
using rig::Till;

class TestTill : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void foldersOfAnInstallation();
    void folderThatStays();
    void settings();
    void files();
    void portForTheService();

private:
    static QByteArray content(const QString &path);
};

QByteArray TestTill::content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "no such file";
}

void TestTill::foldersOfAnInstallation()
{
    QString root;
    {
        const Till till;
        root = till.root();
        for (const QString &folder : {u"/tallocash/cash/conf/tcash.ini.d/puppet"_s,
                                      u"/tallocash/cash/queue/config/queue.d"_s, u"/tmp"_s})
            QVERIFY2(QFileInfo(till.path(folder)).isDir(), qPrintable(folder));
        QCOMPARE(QFileInfo(till.databaseFile()).path(), root + u"/tallocash/cash/queue"_s);
    }
    QVERIFY(!QFile::exists(root));
}

void TestTill::folderThatStays()
{
    const QTemporaryDir folder;
    const QString root = folder.filePath(u"a/till"_s);
    Till(root).write(u"/x"_s, "1");
    QCOMPARE(content(root + u"/x"_s), "1");
    Till(root).setSettings(QString());
    QCOMPARE(content(root + u"/x"_s), "1");

    QFile file(folder.filePath(u"file"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY_THROWS_EXCEPTION(Error, Till{file.fileName()});
}

void TestTill::settings()
{
    Till till;
    const QString text =
        rig::settingsText({{u"b"_s, {{u"y"_s, u"2"_s}, {u"x"_s, u"1"_s}}}, {u"a"_s, {}}});
    QCOMPARE(text, u"\n[a]\n\n[b]\nx = 1\ny = 2\n"_s);
    till.setSettings(u"[old]\n"_s);
    till.setSettings(till.queueSettings(7) + text);
    QCOMPARE(content(till.path(u"/tallocash/cash/conf/tcash.ini"_s)),
             "[queue]\nport = " + QByteArray::number(till.controlPort()) + "\ntimeout = 7\n"
                 + text.toUtf8());
}

void TestTill::files()
{
    Till till;
    QCOMPARE(till.write(u"/certs/till.pem"_s, "long content"), till.root() + u"/certs/till.pem"_s);
    till.write({{u"/certs/till.pem"_s, u"short"_s}, {u"/other"_s, u"й"_s}});
    QCOMPARE(content(till.path(u"/certs/till.pem"_s)), "short");
    QCOMPARE(QString::fromUtf8(content(till.path(u"/other"_s))), u"й"_s);
    QVERIFY_THROWS_EXCEPTION(Error, till.write(u"/other/below"_s, "a file is no folder"));
}

void TestTill::portForTheService()
{
    const Till till;
    const Till other;
    QVERIFY(till.controlPort() != other.controlPort());
    QCOMPARE(till.controlPort(), till.controlPort());
    // The service can bind it although the test has reserved it.
    QTcpServer server;
    QVERIFY2(server.listen(QHostAddress::LocalHost, till.controlPort()),
             qPrintable(server.errorString()));
}

QTEST_GUILESS_MAIN(TestTill)
#include "tst_till.moc"
