#include "shared/document/xmlutils.h"
#include "tests/support/logcapture.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

using namespace Qt::StringLiterals;

class TestXmlUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void selectionReadsLikeTheWhole_data();
    void selectionReadsLikeTheWhole();
    void selectionIsSmall();
    void sizes_data();
    void sizes();
    void limits_data();
    void limits();
    void tooManyElementsForATree();
    void rewrittenAlikeInBothWays_data();
    void rewrittenAlikeInBothWays();
    void replacedChild_data();
    void replacedChild();
    void valueIsFoundByTag_data();
    void valueIsFoundByTag();
    void valueIsFoundInsideAnElement();
    void firstElementIsFound();
    void textElementHoldsItsText();

    void wholeDocumentIsParsed_data();
    void wholeDocumentIsParsed();
    void anythingElseIsEmpty_data();
    void anythingElseIsEmpty();
    void prefixesAsNamespaces_data();
    void prefixesAsNamespaces();
    void cutOffReplyIsEmpty();
    void nothingIsFetched();
    void badBytesAreRefused_data();
    void badBytesAreRefused();
};

void TestXmlUtils::valueIsFoundByTag_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("value");
    // clang-format off
    QTest::newRow("first")             << u"b"_s       << 0   << u"один"_s;
    QTest::newRow("second, deeper")    << u"b"_s       << 1   << u"два"_s;
    QTest::newRow("after the last")    << u"b"_s       << 2   << u""_s;
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
        xmlutils::parseXmlText(u"<a><b>один</b><c><b>два</b><d><![CDATA[&]]></d></c><e/></a>"_s);
    QTEST(xmlutils::getValueByTag(document, tag, index), "value");
}

void TestXmlUtils::valueIsFoundInsideAnElement()
{
    const QDomDocument document =
        xmlutils::parseXmlText(u"<a><n>out</n><c><n>in</n></c><c><n>second</n></c></a>"_s);
    const QDomElement element = document.elementsByTagName(u"c"_s).at(0).toElement();
    QCOMPARE(xmlutils::getValueByTag(element, u"n"_s, 0), u"in"_s);
    QCOMPARE(xmlutils::getValueByTag(element, u"n"_s, 1), u""_s);
    QCOMPARE(xmlutils::getValueByTag(QDomElement(), u"n"_s, 0), u""_s);
    QCOMPARE(xmlutils::getValueByTag(QDomDocument(), u"n"_s, 0), u""_s);
}

void TestXmlUtils::firstElementIsFound()
{
    const QDomDocument document =
        xmlutils::parseXmlText(u"<a><c><n>in</n><n>next</n></c><n>out</n></a>"_s);
    const QDomElement outer = xmlutils::firstElement(document, u"c"_s);
    QCOMPARE(outer.tagName(), u"c"_s);
    QCOMPARE(xmlutils::firstElement(document, u"n"_s).text(), u"in"_s);
    QCOMPARE(xmlutils::firstElement(outer, u"n"_s).text(), u"in"_s);
    QVERIFY(xmlutils::firstElement(outer, u"c"_s).isNull());
    QVERIFY(xmlutils::firstElement(document, u"N"_s).isNull());
    QVERIFY(xmlutils::firstElement(QDomDocument(), u"n"_s).isNull());
    QVERIFY(xmlutils::firstElement(QDomElement(), u"n"_s).isNull());
}

void TestXmlUtils::textElementHoldsItsText()
{
    QDomDocument document = xmlutils::parseXmlText(u"<a/>"_s);
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
    QCOMPARE(xmlutils::getValueByTag(xmlutils::parseXml(bytes, {u"r"_s}), u"r"_s, 0),
             u"Щука «ё»"_s);
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
    QTest::newRow("text after the root")   << "<a><code>0</code></a>0"_ba;
    QTest::newRow("not UTF-8")               << "<a>\xFF\xFE\xFD</a>"_ba;
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
    QList<QDomDocument> documents{xmlutils::parseXml(bytes, {u"a"_s, u"code"_s})};
    // A text has no encoding, so its declaration does not count.
    if (bytes.isValidUtf8() && !bytes.contains("klingon"))
        documents.append(xmlutils::parseXmlText(QString::fromUtf8(bytes)));
    for (const QDomDocument &document : std::as_const(documents))
        QVERIFY2(document.isNull(), qPrintable(document.toString()));
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
    const QDomDocument document = xmlutils::selectXml(text, {u"a"_s}, xmlutils::maxReplyBytes,
                                                      &error, xmlutils::Prefixes::Namespaces);
    QCOMPARE(xmlutils::getValueByTag(document, u"a"_s, 0), isRead ? u"1"_s : u""_s);
    QCOMPARE(error.message.isEmpty(), isRead);
}

void TestXmlUtils::cutOffReplyIsEmpty()
{
    const QByteArray reply =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<reply><code>0</code><text>Щ</text></reply>";
    QCOMPARE(xmlutils::getValueByTag(xmlutils::parseXml(reply, {u"code"_s}), u"code"_s, 0), u"0"_s);
    for (qsizetype length = 0; length < reply.size(); ++length)
        QVERIFY2(xmlutils::parseXml(reply.left(length), {u"code"_s}).isNull(), reply.left(length));
}

void TestXmlUtils::nothingIsFetched()
{
    QTemporaryDir folder;
    QFile file(folder.filePath(u"secret.dtd"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<!ENTITY b \"secret\">");
    file.close();
    const QDomDocument document = xmlutils::parseXml(
        "<!DOCTYPE a SYSTEM \"file://" + file.fileName().toUtf8() + "\"><a><c>0</c></a>", {u"c"_s});
    QCOMPARE(xmlutils::getValueByTag(document, u"c"_s, 0), u"0"_s);
    QVERIFY(!document.toString().contains(u"secret\""_s));
}

void TestXmlUtils::selectionReadsLikeTheWhole_data()
{
    QTest::addColumn<QString>("text");
    // clang-format off
    QTest::newRow("at the root")          << u"<r><a>1</a><b>2</b></r>"_s;
    QTest::newRow("deep and early")       << u"<r><x><y><b>1</b></y></x><a>2</a><b>3</b></r>"_s;
    QTest::newRow("second of a name")     << u"<r><a>1</a><a>2</a><b/><b>3</b></r>"_s;
    QTest::newRow("outside, then inside") << u"<r><b>out</b><a><x><b>in</b><b>second</b></x></a></r>"_s;
    QTest::newRow("in the second only")   << u"<r><a/><a><b>1</b></a></r>"_s;
    QTest::newRow("in itself")            << u"<r><a>1<a>2<b>3</b></a>4</a></r>"_s;
    QTest::newRow("crossed")              << u"<r><b>1<a>2</a>3</b><a>4<b>5</b>6</a></r>"_s;
    QTest::newRow("the root is wanted")   << u"<a>1<b>2</b><a>3</a></a>"_s;
    QTest::newRow("the root alone")       << u"<a>1</a>"_s;
    QTest::newRow("another root")         << u"<x>1</x>"_s;
    QTest::newRow("text in strangers")    << u"<r><a>1<x>2<y>3</y></x>4</a>5</r>"_s;
    QTest::newRow("blanks")               << u"<r>\n <a> \n </a>\n <b> x <c> </c> y </b></r>"_s;
    QTest::newRow("CDATA and references") << u"<r><a>1<![CDATA[ & ]]>2&lt;&#x41;<![CDATA[]]></a><b><![CDATA[ ]]></b></r>"_s;
    QTest::newRow("comments and pieces")  << u"<r><a>1<!-- <b>x</b> -->2<?p <b?>3</a><b> <!-- --> </b></r>"_s;
    QTest::newRow("attributes")           << u"<r><a x='1' p:y='&lt;'/><b z=''>t</b></r>"_s;
    QTest::newRow("prefixes")             << u"<p:r><p:a>1</p:a><a>2</a></p:r>"_s;
    QTest::newRow("line ends")            << u"<r><a>1\r\n2\r3</a></r>"_s;
    // clang-format on
}

/// For every requested tag, at index 0: in the document, and inside the first element of another
/// tag.
void TestXmlUtils::selectionReadsLikeTheWhole()
{
    QFETCH(QString, text);
    const QStringList tags{u"a"_s, u"b"_s};
    const QDomDocument whole = xmlutils::parseXmlText(text);
    QVERIFY(!whole.isNull());
    const QDomDocument selection = xmlutils::selectXml(text, tags, xmlutils::maxReplyBytes);
    QCOMPARE(selection.documentElement().tagName(), whole.documentElement().tagName());
    for (const QString &tag : tags) {
        const QDomElement wanted = whole.elementsByTagName(tag).at(0).toElement();
        const QDomElement found = selection.elementsByTagName(tag).at(0).toElement();
        QCOMPARE(found.isNull(), wanted.isNull());
        QCOMPARE(found.text(), wanted.text());
        for (const QString &name : {u"x"_s, u"p:y"_s, u"z"_s})
            QCOMPARE(found.attribute(name, u"none"_s), wanted.attribute(name, u"none"_s));
        for (const QString &inner : tags)
            QCOMPARE(xmlutils::getValueByTag(found, inner, 0),
                     xmlutils::getValueByTag(wanted, inner, 0));
    }
    QCOMPARE(xmlutils::selectXml(text, {}, xmlutils::maxReplyBytes).isNull(), false);
}

void TestXmlUtils::selectionIsSmall()
{
    const QByteArray reply = "<r>" + QByteArray("<a><b/></a>").repeated(300'000) + "</r>";
    const QDomDocument selection = xmlutils::parseXml(reply, {u"a"_s, u"b"_s});
    QCOMPARE(selection.elementsByTagName(u"a"_s).size(), 1);
    QCOMPARE(selection.elementsByTagName(u"b"_s).size(), 1);
}

void TestXmlUtils::sizes_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<bool>("isReply");
    QTest::newRow("a reply") << 4 * 1024 * 1024 << true;
    QTest::newRow("a document of the till") << 16 * 1024 * 1024 << false;
}

void TestXmlUtils::sizes()
{
    QFETCH(int, limit);
    QFETCH(bool, isReply);
    const LogCapture log(u"xmlutils"_s);
    const auto parse = [isReply](const QByteArray &document) {
        xmlutils::ParseError error;
        const QString text = QString::fromUtf8(document);
        const QStringList tags{u"code"_s};
        const QDomDocument tree =
            isReply ? xmlutils::parseXml(document, tags, &error)
                    : xmlutils::selectXml(text, tags, xmlutils::maxDocumentBytes, &error);
        const QString code = xmlutils::getValueByTag(tree, u"code"_s, 0);
        if (!isReply && xmlutils::rewritten(text).isEmpty() != error.isLimit)
            return u"it is written again only if it is read"_s;
        return error.isLimit ? error.message : code;
    };
    const QByteArray end = "<code>0</code></r>";
    // Of two bytes each in UTF-8, with lines as a shop's documents have them, and one long text.
    const QByteArray line = u"<Позиция><Товар>4607</Товар></Позиция>\n"_s.toUtf8();
    const QByteArray lines = "<r>" + line.repeated((limit - 30) / line.size());
    const QByteArray padding(limit - lines.size() - end.size(), ' ');
    QCOMPARE(parse(lines + padding + end), u"0"_s);
    const QByteArray text(limit - 3 - end.size(), 'x');
    QCOMPARE(parse("<r>" + text + end), u"0"_s);
    QCOMPARE(log.lines(), QStringList());

    const QString message = u"размер %1 байт, допускается не более %2"_s.arg(limit + 1).arg(limit);
    QCOMPARE(parse("<r>" + text + 'x' + end), message);
    QCOMPARE(log.lines().first(), u"ERROR Документ XML не принят: "_s + message);
}

void TestXmlUtils::limits_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");
    const auto nested = [](int levels) {
        return QByteArray("<a>").repeated(levels) + QByteArray("</a>").repeated(levels);
    };
    const auto attributes = [](int count) {
        QByteArray text = "<a><!-- ' = --><b";
        for (int i = 0; i < count; ++i)
            text += " a" + QByteArray::number(i) + "='=\">='";
        return text + "/></a>";
    };
    const QString deep = u"слишком глубокая вложенность, допускается не более 200"_s;
    const QString many = u"больше 1000 атрибутов у одного элемента"_s;
    QTest::newRow("200 levels") << nested(200) << QString();
    QTest::newRow("201 levels") << nested(201) << deep;
    QTest::newRow("as deep as it gets") << nested(2'300'000) << deep;
    QTest::newRow("never closed") << QByteArray("<a>").repeated(1'300'000) << deep;
    QTest::newRow("1,000 attributes") << attributes(1000) << QString();
    QTest::newRow("1,001 attributes") << attributes(1001) << many;
    QTest::newRow("100,000 attributes") << attributes(100'000) << many;
    QTest::newRow("a thousand signs in texts")
        << "<a><!--" + QByteArray("=").repeated(2000) + "--><![CDATA[<"
               + QByteArray("=").repeated(2000) + "]]><?p " + QByteArray("=").repeated(2000) + "?>"
               + QByteArray("=").repeated(2000) + "</a>"
        << QString();
    QTest::newRow("a comment that never ends") << "<a><!-- "_ba << QString();
}

void TestXmlUtils::limits()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, message);
    const LogCapture log(u"xmlutils"_s);
    xmlutils::ParseError error;
    const QDomDocument tree = xmlutils::parseXmlText(QString::fromUtf8(text), &error);
    QCOMPARE(error.isLimit, !message.isEmpty());
    if (error.isLimit) {
        QVERIFY(tree.isNull());
        QCOMPARE(error.message, message);
    }
    xmlutils::ParseError second;
    xmlutils::selectXml(QString::fromUtf8(text), {u"a"_s}, xmlutils::maxDocumentBytes, &second);
    QCOMPARE(second.message, error.message);
    QCOMPARE(log.lines().count(u"ERROR Документ XML не принят: "_s + message),
             message.isEmpty() ? 0 : 2);
}

/// A complete tree of them would use up the till's memory; a selection and a new copy do not.
void TestXmlUtils::tooManyElementsForATree()
{
    const QString element = u"<item code=\"4607\"><name>bread</name></item>"_s;
    const auto document = [&element](int elements) -> QString {
        return u"<r>"_s + element.repeated(elements) + u"</r>"_s;
    };
    QVERIFY(!xmlutils::parseXmlText(document(10'000)).isNull());
    xmlutils::ParseError error;
    const QString large = document(390'000);
    QVERIFY(xmlutils::parseXmlText(large, &error).isNull());
    QCOMPARE(error.message, u"слишком много элементов и атрибутов, чтобы изменить документ"_s);
    QVERIFY(error.isLimit);
    QVERIFY(!xmlutils::selectXml(large, {u"a"_s}, xmlutils::maxDocumentBytes).isNull());
    QCOMPARE(
        xmlutils::rewritten(large).count("\n <item code=\"4607\">\n  <name>bread</name>\n </item>"),
        390'000);
}

void TestXmlUtils::rewrittenAlikeInBothWays_data()
{
    selectionReadsLikeTheWhole_data();
    // clang-format off
    QTest::newRow("declaration")      << u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><r><a>1</a></r>"_s;
    QTest::newRow("no encoding")      << u"<?xml version=\"1.0\"?><r><a>1</a></r>"_s;
    QTest::newRow("standalone")       << u"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?><r/>"_s;
    QTest::newRow("document type")    << u"<!DOCTYPE r><r/>"_s;
    QTest::newRow("signs")            << u"<r a='&lt;&amp;&quot;&apos;&gt;&#9;&#10;&#13;'>&lt;&amp;&quot;'&gt; ]]&gt; &#13;\t</r>"_s;
    QTest::newRow("empty elements")   << u"<r><a></a><b/> <c> </c></r>"_s;
    QTest::newRow("mixed")            << u"<r>1<a/>2<a/><b>3</b>4<c><d/></c></r>"_s;
    QTest::newRow("comments")         << u"<!-- 0 --><r><!-- 1 --><a/><!-- 2 -->t<!-- 3 --></r><!-- 4 -->"_s;
    QTest::newRow("instructions")     << u"<?a b?><r><?c d?><a/><?e f?></r>"_s;
    QTest::newRow("Russian")          << u"<чек ж='Щ'><товар>хлеб 🍞</товар></чек>"_s;
    QTest::newRow("corrections")      << u"<r><ChequeLine Correction='1'/><x Correction='2'/><ChequeLine Sum='3'>t</ChequeLine></r>"_s;
    // clang-format on
}

void TestXmlUtils::rewrittenAlikeInBothWays()
{
    QFETCH(QString, text);
    const xmlutils::DroppedAttribute dropped{u"ChequeLine"_s, u"Correction"_s};
    QVERIFY(!xmlutils::rewritten(text).isEmpty());
    // The tree writes several attributes in any order.
    if (text.contains(u"p:y"_s))
        return;
    QCOMPARE(QString::fromUtf8(xmlutils::rewrittenInPieces(text)),
             QString::fromUtf8(xmlutils::rewritten(text)));
    QCOMPARE(QString::fromUtf8(xmlutils::rewrittenInPieces(text, dropped)),
             QString::fromUtf8(xmlutils::rewritten(text, dropped)));
}

void TestXmlUtils::replacedChild_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("rewritten");
    const QString after = u"  <D>&lt;7</D>\n </p>\n"_s;
    QTest::newRow("absent") << u"<r><p><n>1</n></p></r>"_s
                            << u"<r>\n <p>\n  <n>1</n>\n"_s + after + u"</r>\n"_s;
    QTest::newRow("empty parent") << u"<r><p/></r>"_s << u"<r>\n <p>\n"_s + after + u"</r>\n"_s;
    QTest::newRow("replaced") << u"<r><p><D>old<x/></D><n>1</n></p></r>"_s
                              << u"<r>\n <p>\n  <n>1</n>\n"_s + after + u"</r>\n"_s;
    QTest::newRow("the first child alone")
        << u"<r><p><D/><D>2</D></p></r>"_s << u"<r>\n <p>\n  <D>2</D>\n"_s + after + u"</r>\n"_s;
    QTest::newRow("the first parent alone")
        << u"<r><p/><p><D/></p></r>"_s
        << u"<r>\n <p>\n"_s + after + u" <p>\n  <D/>\n </p>\n</r>\n"_s;
    QTest::newRow("deeper and outside stay")
        << u"<r><D/><p><n><D/></n></p><D/></r>"_s
        << u"<r>\n <D/>\n <p>\n  <n>\n   <D/>\n  </n>\n"_s + after + u" <D/>\n</r>\n"_s;
    QTest::newRow("no parent") << u"<r><D/></r>"_s << u"<r>\n <D/>\n</r>\n"_s;
}

void TestXmlUtils::replacedChild()
{
    QFETCH(QString, text);
    QTEST(QString::fromUtf8(xmlutils::rewrittenInPieces(text, {}, {u"p"_s, u"D"_s, u"<7"_s})),
          "rewritten");
}

void TestXmlUtils::badBytesAreRefused_data()
{
    QTest::addColumn<QString>("encoding");
    QTest::addColumn<QByteArray>("good");
    QTest::addColumn<QByteArray>("bad");
    const auto in = [](const char *codec, const QString &text) {
        return QTextCodec::codecForName(codec)->fromUnicode(text);
    };
    // clang-format off
    QTest::newRow("UTF-8")              << u"utf-8"_s        << u"Щ"_s.toUtf8()              << "\xD0"_ba;
    QTest::newRow("Shift_JIS")          << u"Shift_JIS"_s    << in("Shift_JIS", u"カ表"_s)   << "\x81\xAD"_ba;
    QTest::newRow("Shift_JIS, half")    << u"Shift_JIS"_s    << in("Shift_JIS", u"カ"_s)     << "\x81"_ba;
    QTest::newRow("EUC-JP")             << u"EUC-JP"_s       << in("EUC-JP", u"カ"_s)        << "\xA9\xFE"_ba;
    QTest::newRow("ISO-2022-JP")        << u"ISO-2022-JP"_s  << in("ISO-2022-JP", u"カ"_s) + "\x1b(B"   << "\xFF"_ba;
    QTest::newRow("GB18030")            << u"GB18030"_s      << in("GB18030", u"中"_s)       << "\xFF"_ba;
    QTest::newRow("Big5")               << u"Big5"_s         << in("Big5", u"中"_s)          << "\x81\x20"_ba;
    QTest::newRow("windows-1253")       << u"windows-1253"_s << in("windows-1253", u"Ω"_s)   << "\xD2"_ba;
    QTest::newRow("ISO-8859-8")         << u"ISO-8859-8"_s   << in("ISO-8859-8", u"א"_s)     << "\xA1"_ba;
    QTest::newRow("US-ASCII")           << u"us-ascii"_s     << "a"_ba                       << "\xD9"_ba;
    // clang-format on
}

void TestXmlUtils::badBytesAreRefused()
{
    QFETCH(QString, encoding);
    QFETCH(QByteArray, good);
    QFETCH(QByteArray, bad);
    const QByteArray begin =
        u"<?xml version=\"1.0\" encoding=\"%1\"?><a><code>0</code>"_s.arg(encoding).toLatin1();
    const auto codeIn = [](const QByteArray &bytes) {
        return xmlutils::getValueByTag(xmlutils::parseXml(bytes, {u"code"_s}), u"code"_s, 0);
    };
    QCOMPARE(codeIn(begin + good + "</a>"), u"0"_s);
    xmlutils::ParseError error;
    QVERIFY(xmlutils::parseXml(begin + bad + "</a>", {u"code"_s}, &error).isNull());
    QCOMPARE(error.message, u"текст не соответствует своей кодировке"_s);
    // A text that ends within a letter.
    QCOMPARE(codeIn(begin + "</a>\n"), u"0"_s);
    QCOMPARE(codeIn(begin + "</a>" + bad), QString());
}

QTEST_GUILESS_MAIN(TestXmlUtils)
#include "tst_xmlutils.moc"
