#include "shared/document/xmlutils.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

using namespace Qt::StringLiterals;

class TestXmlUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void largeDocumentsAreRefused();
    void valueIsFoundByTag_data();
    void valueIsFoundByTag();
    void valueIsFoundInsideAnElement();
    void textElementHoldsItsText();

    void wholeDocumentIsParsed_data();
    void wholeDocumentIsParsed();
    void anythingElseIsEmpty_data();
    void anythingElseIsEmpty();
    void prefixesAsNamespaces_data();
    void prefixesAsNamespaces();
    void cutOffReplyIsEmpty();
    void nothingIsFetched();
};

void TestXmlUtils::valueIsFoundByTag_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("value");
    // clang-format off
    QTest::newRow("first")             << u"b"_s       << 0   << u"один"_s;
    QTest::newRow("second, deeper")    << u"b"_s       << 1   << u"два"_s;
    QTest::newRow("behind the last")   << u"b"_s       << 2   << u""_s;
    QTest::newRow("negative")          << u"b"_s       << -1  << u""_s;
    QTest::newRow("none of the name")  << u"x"_s       << 0   << u""_s;
    QTest::newRow("other case")        << u"B"_s       << 0   << u""_s;
    QTest::newRow("empty")             << u"e"_s       << 0   << u""_s;
    QTest::newRow("with children")     << u"c"_s       << 0   << u"два&"_s;
    QTest::newRow("the root")          << u"a"_s       << 0   << u"одиндва&"_s;
    QTest::newRow("CDATA")             << u"d"_s       << 0   << u"&"_s;
    // clang-format on
}

void TestXmlUtils::valueIsFoundByTag()
{
    QFETCH(QString, tag);
    QFETCH(int, index);
    const QDomDocument document =
        xmlutils::parseXml("<a><b>один</b><c><b>два</b><d><![CDATA[&]]></d></c><e/></a>");
    QTEST(xmlutils::getValueByTag(document, tag, index), "value");
}

void TestXmlUtils::valueIsFoundInsideAnElement()
{
    const QDomDocument document =
        xmlutils::parseXml("<a><n>out</n><c><n>in</n></c><c><n>second</n></c></a>");
    const QDomElement element = document.elementsByTagName(u"c"_s).at(0).toElement();
    QCOMPARE(xmlutils::getValueByTag(element, u"n"_s, 0), u"in"_s);
    QCOMPARE(xmlutils::getValueByTag(element, u"n"_s, 1), u""_s);
    QCOMPARE(xmlutils::getValueByTag(QDomElement(), u"n"_s, 0), u""_s);
    QCOMPARE(xmlutils::getValueByTag(QDomDocument(), u"n"_s, 0), u""_s);
}

void TestXmlUtils::textElementHoldsItsText()
{
    QDomDocument document = xmlutils::parseXml("<a/>");
    const QDomElement element =
        xmlutils::createTextElement(document, u"DateTime"_s, u"<5 & \"Щ\""_s);
    QCOMPARE(document.toString(-1), u"<a/>"_s);
    document.documentElement().appendChild(element);
    QCOMPARE(document.toString(-1), u"<a><DateTime>&lt;5 &amp; \"Щ\"</DateTime></a>"_s);
}

void TestXmlUtils::wholeDocumentIsParsed_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QString cyrillic = u"<r>Щука «ё»</r>"_s;
    const auto in = [&cyrillic](const char *codec, const QString &declared) {
        const QString declaration = u"<?xml version=\"1.0\" encoding='%1'?>\n"_s.arg(declared);
        return QTextCodec::codecForName(codec)->fromUnicode(declaration + cyrillic);
    };
    // clang-format off
    QTest::newRow("no declaration")           << cyrillic.toUtf8();
    QTest::newRow("no encoding")              << "<?xml version=\"1.0\"?>" + cyrillic.toUtf8();
    QTest::newRow("UTF-8")                    << in("UTF-8", u"UTF-8"_s);
    QTest::newRow("UTF-8 with mark")          << "\xEF\xBB\xBF" + in("UTF-8", u"utf-8"_s);
    QTest::newRow("UTF-16 with mark")         << in("UTF-16", u"UTF-16"_s);
    QTest::newRow("UTF-16 without mark")      << in("UTF-16LE", u"UTF-16"_s);
    QTest::newRow("UTF-8 that says UTF-16")   << in("UTF-8", u"utf-16"_s);
    QTest::newRow("windows-1251")             << in("windows-1251", u"windows-1251"_s);
    QTest::newRow("WINDOWS-1251")             << in("windows-1251", u"WINDOWS-1251"_s);
    QTest::newRow("cp1251")                   << in("windows-1251", u"cp1251"_s);
    QTest::newRow("document type")            << "<!DOCTYPE r>" + cyrillic.toUtf8();
    QTest::newRow("comment and line end")     << cyrillic.toUtf8() + "<!-- end -->\n";
    QTest::newRow("attributes and prefix")    << "<r xmlns:s='urn:s' s:a='1'>" + u"Щука «ё»"_s.toUtf8() + "</r>";
    QTest::newRow("undeclared prefixes")      << "<r s:a='1'>" + u"Щука «ё»<s:b/>"_s.toUtf8() + "</r>";
    QTest::newRow("character references")     << "<r>&#1065;ука &#xAB;ё&#187;</r>"_ba;
    // clang-format on
}

void TestXmlUtils::wholeDocumentIsParsed()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(xmlutils::getValueByTag(xmlutils::parseXml(bytes), u"r"_s, 0), u"Щука «ё»"_s);
}

void TestXmlUtils::anythingElseIsEmpty_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray deep =
        QByteArray("<a>").repeated(100'000) + QByteArray("</a>").repeated(100'000);
    QByteArray laughs = "<!DOCTYPE a [<!ENTITY e0 \"ha\">"_ba;
    for (int i = 1; i < 20; ++i)
        laughs += "<!ENTITY e" + QByteArray::number(i) + " \""
                  + ("&e" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
    laughs += "]><a>&e19;</a>";
    // clang-format off
    QTest::newRow("nothing")                << ""_ba;
    QTest::newRow("blanks")                 << " \n"_ba;
    QTest::newRow("text")                   << "code 0"_ba;
    QTest::newRow("JSON")                   << "{\"code\":0}"_ba;
    QTest::newRow("HTML")                   << "<html><head><meta charset=utf-8></head><body>502<br></body></html>"_ba;
    QTest::newRow("declaration alone")      << "<?xml version=\"1.0\"?>"_ba;
    QTest::newRow("wrong end")              << "<a><code>0</code></b>"_ba;
    QTest::newRow("two roots")              << "<a><code>0</code></a><a/>"_ba;
    QTest::newRow("text behind the root")   << "<a><code>0</code></a>0"_ba;
    QTest::newRow("no UTF-8")               << "<a>\xFF\xFE\xFD</a>"_ba;
    QTest::newRow("unknown encoding")       << "<?xml version=\"1.0\" encoding=\"klingon\"?><a>0</a>"_ba;
    QTest::newRow("zeros")                  << QByteArray(100, '\0');
    QTest::newRow("unknown entity")         << "<a>&b;</a>"_ba;
    QTest::newRow("own entity")             << "<!DOCTYPE a [<!ENTITY b \"0\">]><a>&b;</a>"_ba;
    QTest::newRow("entity in a file")       << "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/passwd\">]><a>&b;</a>"_ba;
    QTest::newRow("entity in an attribute") << "<!DOCTYPE a [<!ENTITY b \"0\">]><a c=\"&b;\"/>"_ba;
    QTest::newRow("unread file, unknown entity") << "<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a>&b;</a>"_ba;
    QTest::newRow("multiplying entities")   << laughs;
    QTest::newRow("100,000 levels")         << deep;
    // clang-format on
}

void TestXmlUtils::anythingElseIsEmpty()
{
    QFETCH(QByteArray, bytes);
    const QDomDocument document = xmlutils::parseXml(bytes);
    QVERIFY2(document.isNull() || !document.hasChildNodes(), qPrintable(document.toString()));
}

void TestXmlUtils::prefixesAsNamespaces_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isRead");
    QTest::newRow("none") << u"<r><a>1</a></r>"_s << true;
    QTest::newRow("default namespace") << u"<r xmlns='urn:r'><a>1</a></r>"_s << true;
    QTest::newRow("declared") << u"<s:r xmlns:s='urn:s'><a>1</a></s:r>"_s << true;
    QTest::newRow("undeclared on an element") << u"<r><s:b/><a>1</a></r>"_s << false;
    QTest::newRow("undeclared on an attribute") << u"<r s:b=''><a>1</a></r>"_s << false;
}

void TestXmlUtils::prefixesAsNamespaces()
{
    QFETCH(QString, text);
    QFETCH(bool, isRead);
    xmlutils::ParseError error;
    const QDomDocument document =
        xmlutils::parseXmlText(text, &error, xmlutils::Prefixes::Namespaces);
    QCOMPARE(xmlutils::getValueByTag(document, u"a"_s, 0), isRead ? u"1"_s : u""_s);
    QCOMPARE(error.message.isEmpty(), isRead);
}

void TestXmlUtils::cutOffReplyIsEmpty()
{
    const QByteArray reply =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<reply><code>0</code><text>Щ</text></reply>";
    QCOMPARE(xmlutils::getValueByTag(xmlutils::parseXml(reply), u"code"_s, 0), u"0"_s);
    for (qsizetype length = 0; length < reply.size(); ++length)
        QVERIFY2(!xmlutils::parseXml(reply.left(length)).hasChildNodes(), reply.left(length));
}

void TestXmlUtils::nothingIsFetched()
{
    QTemporaryDir folder;
    QFile file(folder.filePath(u"secret.dtd"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<!ENTITY b \"secret\">");
    file.close();
    const QDomDocument document = xmlutils::parseXml(
        "<!DOCTYPE a SYSTEM \"file://" + file.fileName().toUtf8() + "\"><a><c>0</c></a>");
    QCOMPARE(xmlutils::getValueByTag(document, u"c"_s, 0), u"0"_s);
    QVERIFY(!document.toString().contains(u"secret\""_s));
}

void TestXmlUtils::largeDocumentsAreRefused()
{
    const auto document = [](qsizetype size) {
        return "<a>" + QByteArray(size - 7, 'x') + "</a>";
    };
    constexpr qsizetype limit = 512 * 1024;
    QVERIFY(!xmlutils::parseXml(document(limit)).isNull());
    xmlutils::ParseError error;
    QVERIFY(xmlutils::parseXml(document(limit + 1), &error).isNull());
    QCOMPARE(error.message, u"документ больше 512 КиБ"_s);
    error = {};
    QVERIFY(xmlutils::parseXmlText(QString::fromUtf8(document(limit + 1)), &error).isNull());
    QCOMPARE(error.message, u"документ больше 512 КиБ"_s);
}

QTEST_GUILESS_MAIN(TestXmlUtils)
#include "tst_xmlutils.moc"
