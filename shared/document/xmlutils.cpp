#include "shared/document/xmlutils.h"

#include "shared/core/largedocuments.h"
#include "shared/document/xmldecoding.h"
#include "shared/document/xmlselection.h"

#include <log4qt/logmanager.h>

#include <QXmlStreamReader>

#include <optional>

using namespace Qt::StringLiterals;

namespace xmlutils {

namespace {

/// A tree is walked and destroyed recursively, on a worker's stack.
constexpr int maxDepth = 200;
/// Qt's reader compares each attribute of an element with all earlier ones: 40,000 attributes take
/// 3 seconds, 150,000 half a minute.
constexpr int maxAttributes = 1000;
/// Measured memory of a node in Qt's tree: a document of 16 MiB of short elements with one
/// attribute each would take 4 GiB.
constexpr qsizetype nodeBytes = 300;
constexpr qsizetype attributeTableBytes = 2'200;
constexpr qsizetype maxTreeBytes = 64 * 1024 * 1024;
/// For a larger document the tree is not worth its memory.
constexpr qsizetype smallTreeBytes = 16 * 1024 * 1024;

ParseError tooLarge(qsizetype bytes, qsizetype limit)
{
    return {1, 1, u"размер %1 байт, допускается не более %2"_s.arg(bytes).arg(limit), true};
}

/// The size of the text in UTF-8.
qsizetype byteSize(const QString &text)
{
    qsizetype bytes = 0;
    for (const QChar symbol : text)
        bytes += symbol < QChar(0x80) ? 1 : symbol < QChar(0x800) || symbol.isSurrogate() ? 2 : 3;
    return bytes;
}

/// Whether an element has more attributes than any real service sends. Scans only the markup, in
/// one pass, before Qt's reader gets it.
bool hasTooManyAttributes(QStringView text)
{
    qsizetype at = 0;
    while ((at = text.indexOf(u'<', at)) >= 0) {
        const QStringView rest = text.sliced(at);
        const QStringView end = rest.startsWith(u"<!--")        ? u"-->"
                                : rest.startsWith(u"<![CDATA[") ? u"]]>"
                                : rest.startsWith(u"<?")        ? u"?>"
                                                                : QStringView();
        if (!end.isNull()) {
            at = text.indexOf(end, at);
            if (at < 0)
                return false;
            continue;
        }
        int attributes = 0;
        QChar quote;
        for (++at; at < text.size() && (!quote.isNull() || text[at] != u'>'); ++at) {
            const QChar symbol = text[at];
            if (!quote.isNull())
                quote = symbol == quote ? QChar() : quote;
            else if (symbol == u'"' || symbol == u'\'')
                quote = symbol;
            else if (symbol == u'=' && ++attributes > maxAttributes)
                return true;
        }
    }
    return false;
}

qsizetype treeBytesOf(const QXmlStreamReader &element)
{
    const qsizetype attributes = element.attributes().size();
    return nodeBytes + (attributes > 0 ? attributeTableBytes + attributes * nodeBytes : 0);
}

/// Why the text must not be read; nothing if it is well formed and within limits. Fills
/// `selection`, and stores the memory that a tree would take in `treeBytes`.
std::optional<ParseError> refusal(const QString &text, Prefixes prefixes, XmlSelection *selection,
                                  qsizetype *treeBytes)
{
    if (hasTooManyAttributes(text))
        return ParseError{1, 1, u"больше %1 атрибутов у одного элемента"_s.arg(maxAttributes),
                          true};
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(prefixes == Prefixes::Namespaces);
    const auto here = [&reader](const QString &message, bool isLimit = false) {
        return ParseError{static_cast<int>(reader.lineNumber()),
                          static_cast<int>(reader.columnNumber()), message, isLimit};
    };
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > maxDepth)
                return here(
                    u"слишком глубокая вложенность, допускается не более %1"_s.arg(maxDepth), true);
            if (treeBytes)
                *treeBytes += treeBytesOf(reader);
            if (selection)
                selection->begin(reader);
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            if (selection)
                selection->end();
            break;
        case QXmlStreamReader::Characters:
            // Qt's tree leaves out texts of blanks as well.
            if (treeBytes)
                *treeBytes += nodeBytes;
            if (selection && !reader.isWhitespace())
                selection->text(reader.text());
            break;
        case QXmlStreamReader::DTD:
            if (!reader.entityDeclarations().isEmpty())
                return here(u"объявления сущностей не допускаются"_s);
            break;
        case QXmlStreamReader::EntityReference:
            return here(u"неизвестная сущность"_s);
        default:
            break;
        }
    }
    if (reader.hasError())
        return here(reader.errorString());
    return std::nullopt;
}

/// Returns an empty document. Logs an exceeded limit for every caller: otherwise a well-formed
/// document would be refused without a visible reason.
QDomDocument refused(const ParseError &reason, ParseError *error)
{
    if (reason.isLimit)
        Log4Qt::LogManager::logger(u"xmlutils"_s)
            ->error(u"Документ XML не принят: %1"_s, reason.message);
    if (error)
        *error = reason;
    return {};
}

/// Why a document of the till must not be read.
std::optional<ParseError> documentRefusal(const QString &text, qsizetype &treeBytes)
{
    const qsizetype bytes = byteSize(text);
    if (bytes > maxDocumentBytes)
        return tooLarge(bytes, maxDocumentBytes);
    noteLargeDocument(bytes);
    return refusal(text, Prefixes::PartOfTheName, nullptr, &treeBytes);
}

QDomDocument wholeTree(const QString &text, ParseError *error)
{
    QDomDocument document;
    // setContent() keeps the part before an error, so the document is discarded.
    if (!document.setContent(text))
        return refused({1, 1, u"документ не читается"_s}, error);
    return document;
}

QByteArray rewrittenAsTree(const QDomDocument &document, const DroppedAttribute &dropped)
{
    if (!dropped.element.isEmpty()) {
        const QDomNodeList elements = document.elementsByTagName(dropped.element);
        for (int i = 0; i < elements.size(); ++i)
            elements.at(i).toElement().removeAttribute(dropped.attribute);
    }
    return document.toString(1).toUtf8();
}

QDomDocument selected(const QString &text, const QStringList &tags, ParseError *error,
                      Prefixes prefixes)
{
    noteLargeDocument(text.size() * qsizetype{sizeof(QChar)});
    XmlSelection selection(tags);
    const std::optional<ParseError> reason = refusal(text, prefixes, &selection, nullptr);
    return reason ? refused(*reason, error) : selection.take();
}

template <typename Node>
QString valueByTag(const Node &node, const QString &tag, int index)
{
    // QDomNodeList does not check for a negative index.
    if (index < 0)
        return QString();
    return node.elementsByTagName(tag).at(index).toElement().text();
}

} // namespace

QDomElement firstElement(const QDomDocument &document, const QString &tag)
{
    return document.elementsByTagName(tag).at(0).toElement();
}

QDomElement firstElement(const QDomElement &element, const QString &tag)
{
    return element.elementsByTagName(tag).at(0).toElement();
}

QString getValueByTag(const QDomDocument &document, const QString &tag, int index)
{
    return valueByTag(document, tag, index);
}

QString getValueByTag(const QDomElement &element, const QString &tag, int index)
{
    return valueByTag(element, tag, index);
}

QDomElement createTextElement(QDomDocument &document, const QString &name, const QString &text)
{
    QDomElement element = document.createElement(name);
    element.appendChild(document.createTextNode(text));
    return element;
}

QDomDocument parseXml(const QByteArray &bytes, const QStringList &tags, ParseError *error,
                      Prefixes prefixes)
{
    if (bytes.size() > maxReplyBytes)
        return refused(tooLarge(bytes.size(), maxReplyBytes), error);
    const std::optional<QString> text = decodeXml(bytes);
    if (!text)
        return refused({1, 1, u"текст не соответствует своей кодировке"_s}, error);
    return selected(*text, tags, error, prefixes);
}

QDomDocument selectXml(const QString &text, const QStringList &tags, qsizetype limit,
                       ParseError *error, Prefixes prefixes)
{
    const qsizetype bytes = byteSize(text);
    if (bytes > limit)
        return refused(tooLarge(bytes, limit), error);
    return selected(text, tags, error, prefixes);
}

QDomDocument parseXmlText(const QString &text, ParseError *error)
{
    qsizetype treeBytes = 0;
    if (const auto reason = documentRefusal(text, treeBytes))
        return refused(*reason, error);
    if (treeBytes > maxTreeBytes)
        return refused(
            {1, 1, u"слишком много элементов и атрибутов, чтобы изменить документ"_s, true}, error);
    return wholeTree(text, error);
}

QByteArray rewritten(const QString &text, const DroppedAttribute &dropped)
{
    qsizetype treeBytes = 0;
    if (const auto reason = documentRefusal(text, treeBytes)) {
        refused(*reason, nullptr);
        return {};
    }
    return treeBytes > smallTreeBytes ? rewrittenInPieces(text, dropped)
                                      : rewrittenAsTree(wholeTree(text, nullptr), dropped);
}

bool fitsATree(const QString &text)
{
    qsizetype treeBytes = 0;
    return !documentRefusal(text, treeBytes) && treeBytes <= maxTreeBytes;
}

} // namespace xmlutils
