#include "shared/document/xmlutils.h"

#include "shared/core/largedocuments.h"

#include <log4qt/logmanager.h>

#include <QRegularExpression>
#include <QSet>
#include <QStringDecoder>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace xmlutils {

namespace {

/// A tree is walked and destroyed by recursion, on a worker's stack.
constexpr int maxDepth = 200;
/// Qt's reader compares each attribute of an element with all before it: 40,000 of them take it three
/// seconds, 150,000 half a minute.
constexpr int maxAttributes = 1000;
/// What Qt's tree takes, as measured: a document of 16 MiB of short elements with an attribute each would
/// take four gigabytes.
constexpr qsizetype nodeBytes = 300;
constexpr qsizetype attributeTableBytes = 2'200;
constexpr qsizetype maxTreeBytes = 64 * 1024 * 1024;
/// A larger tree is not built only to be written again.
constexpr qsizetype smallTreeBytes = 16 * 1024 * 1024;

ParseError tooLarge(qsizetype bytes, qsizetype limit)
{
    return {1, 1, u"размер %1 байт, допускается не более %2"_s.arg(bytes).arg(limit), true};
}

/// The size of the text in UTF-8, in which it came.
qsizetype byteSize(const QString &text)
{
    qsizetype bytes = 0;
    for (const QChar symbol : text)
        bytes += symbol < QChar(0x80) ? 1 : symbol < QChar(0x800) || symbol.isSurrogate() ? 2 : 3;
    return bytes;
}

/// Whether an element of the text has more attributes than any service's. Looks at the markup alone, in one
/// walk, before the reader meets it.
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

std::optional<QString> decodeUnicode(QStringConverter::Encoding encoding, const QByteArray &bytes)
{
    QStringDecoder decoder(encoding);
    const QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

/// Qt's own parser knows the Unicode encodings alone, and services answer in windows-1251, too.
std::optional<QString> decode(const QByteArray &bytes)
{
    if (const auto unicode = QStringConverter::encodingForData(bytes, u'<'))
        return decodeUnicode(*unicode, bytes);

    static const QRegularExpression declaration(
        u"^<\\?xml\\s[^>]*encoding\\s*=\\s*[\"']([A-Za-z0-9._-]+)[\"']"_s);
    constexpr qsizetype declarationBytes = 200;
    const QString name =
        declaration.match(QString::fromLatin1(bytes.left(declarationBytes))).captured(1).toLower();
    // Bytes in which the declaration can be read are no UTF-16, whatever it says.
    if (name.isEmpty() || name.startsWith(u"utf"))
        return decodeUnicode(QStringConverter::Utf8, bytes);

    const QTextCodec *codec = QTextCodec::codecForName(name.toLatin1());
    if (!codec)
        return std::nullopt;
    QTextCodec::ConverterState state;
    const QString text =
        codec->toUnicode(bytes.constData(), static_cast<int>(bytes.size()), &state);
    if (state.invalidChars > 0)
        return std::nullopt;
    return text;
}

/// Keeps of a document the root, the first element of each of some names in the document, and within each of
/// these the first of each name again, with their attributes and all text inside them.
class Selection
{
public:
    explicit Selection(const QStringList &tags)
        : tags(tags)
    {
    }

    void begin(const QXmlStreamReader &reader)
    {
        ++depth;
        const QString name = reader.qualifiedName().toString();
        const bool isRoot = depth == 1;
        const bool isWanted = tags.contains(name);
        if (!isRoot && !(isWanted && isFirst(name)))
            return;
        QDomElement element = document.createElement(name);
        const QXmlStreamAttributes attributes = reader.attributes();
        for (const QXmlStreamAttribute &attribute : attributes)
            element.setAttribute(attribute.qualifiedName().toString(),
                                 attribute.value().toString());
        if (isRoot)
            document.appendChild(element);
        else
            open.last().element.appendChild(element);
        if (isWanted) {
            seen.insert(name);
            for (Kept &kept : open)
                kept.seen.insert(name);
        }
        open.append({element, {}, depth, isWanted});
    }

    void end()
    {
        if (open.last().depth == depth)
            open.removeLast();
        --depth;
    }

    void text(QStringView part)
    {
        // That of a root whose name is not asked for would be the whole document's.
        const bool isInside = std::ranges::any_of(open, &Kept::isWanted);
        if (!isInside)
            return;
        QDomText last = open.last().element.lastChild().toText();
        if (last.isNull())
            open.last().element.appendChild(document.createTextNode(part.toString()));
        else
            last.appendData(part.toString());
    }

    QDomDocument take() const { return document; }

private:
    struct Kept
    {
        QDomElement element;
        /// The names that were kept inside it.
        QSet<QString> seen;
        int depth = 0;
        bool isWanted = false;
    };

    bool isFirst(const QString &name) const
    {
        return !seen.contains(name) || std::ranges::any_of(open, [&name](const Kept &kept) {
            return !kept.seen.contains(name);
        });
    }

    QStringList tags;
    QDomDocument document;
    /// Those that are open, from the root on.
    QList<Kept> open;
    /// The names that were kept in the document.
    QSet<QString> seen;
    int depth = 0;
};

qsizetype treeBytesOf(const QXmlStreamReader &element)
{
    const qsizetype attributes = element.attributes().size();
    return nodeBytes + (attributes > 0 ? attributeTableBytes + attributes * nodeBytes : 0);
}

/// Why the text is not to be read; nothing when it is whole and harmless. `selection` gets what it holds,
/// `treeBytes` what a tree of it would take.
std::optional<ParseError> refusal(const QString &text, Prefixes prefixes, Selection *selection,
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
            // Like Qt's own tree, which has no texts of blanks alone.
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

/// Always an empty document. A limit of ours has its line in the log for every caller: without one, a document
/// that is well formed would be turned down for no visible reason.
QDomDocument refused(const ParseError &reason, ParseError *error)
{
    if (reason.isLimit)
        Log4Qt::LogManager::logger(u"xmlutils"_s)
            ->error(u"Документ XML не принят: %1"_s, reason.message);
    if (error)
        *error = reason;
    return {};
}

/// Why a document of the till is not to be read.
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
    // setContent() keeps what it read before an error.
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

/// Follows a document to the place where a child is replaced.
class Replacement
{
public:
    explicit Replacement(const ReplacedChild &child)
        : child(child)
    {
    }

    /// False when the token belongs to the former child.
    bool keeps(const QXmlStreamReader &reader)
    {
        const bool wasDropping = isDropping;
        if (reader.isStartElement()) {
            ++depth;
            if (parentDepth == 0 && reader.qualifiedName() == child.parent)
                parentDepth = depth;
            else if (isOpen() && depth == parentDepth + 1 && !hasDropped
                     && reader.qualifiedName() == child.name)
                isDropping = hasDropped = true;
        } else if (reader.isEndElement()) {
            if (isDropping && depth == parentDepth + 1)
                isDropping = false;
            --depth;
        }
        return !wasDropping && !isDropping;
    }

    /// The parent's end comes next: the new child goes before it.
    bool isDue(const QXmlStreamReader &reader)
    {
        if (!isOpen() || !reader.isEndElement() || depth != parentDepth)
            return false;
        isDone = true;
        return true;
    }

private:
    bool isOpen() const { return parentDepth > 0 && !isDone; }

    const ReplacedChild &child;
    int depth = 0;
    int parentDepth = 0;
    bool isDropping = false;
    bool hasDropped = false;
    bool isDone = false;
};

/// Writes a document as Qt's tree does with an indent of 1, one token after another. Attributes keep their
/// order.
class PieceWriter
{
public:
    void take(const QXmlStreamReader &reader, const DroppedAttribute &dropped)
    {
        switch (reader.tokenType()) {
        case QXmlStreamReader::StartDocument:
            if (!reader.documentVersion().isEmpty())
                declare(reader);
            break;
        case QXmlStreamReader::DTD:
            out += reader.text().toUtf8() + '\n';
            break;
        case QXmlStreamReader::StartElement:
            beforeMarkup();
            begin(reader, dropped);
            break;
        case QXmlStreamReader::EndElement:
            end(reader);
            break;
        case QXmlStreamReader::Characters:
            if (!reader.isWhitespace())
                write(reader);
            break;
        case QXmlStreamReader::Comment:
            beforeMarkup();
            out += "<!--" + reader.text().toUtf8() + "-->";
            isAfterText = false;
            needsLine = true;
            break;
        case QXmlStreamReader::ProcessingInstruction:
            // Stands on a line of its own, without an indent.
            closeStart();
            if (needsLine)
                out += '\n';
            out += "<?" + reader.processingInstructionTarget().toUtf8() + ' '
                   + reader.processingInstructionData().toUtf8() + "?>\n";
            isAfterText = false;
            needsLine = false;
            break;
        default:
            break;
        }
    }

    /// One that the document does not have.
    void element(const QString &name, const QString &text)
    {
        beforeMarkup();
        out += '<' + name.toUtf8() + '>' + escaped(text, false) + "</" + name.toUtf8() + '>';
        isAfterText = false;
        needsLine = true;
    }

    QByteArray finish()
    {
        closeStart();
        if (needsLine)
            out += '\n';
        return out;
    }

private:
    void declare(const QXmlStreamReader &reader)
    {
        out += "<?xml version='" + reader.documentVersion().toUtf8() + '\'';
        if (!reader.documentEncoding().isEmpty())
            out += " encoding='" + reader.documentEncoding().toUtf8() + '\'';
        if (reader.isStandaloneDocument())
            out += " standalone='yes'";
        out += "?>\n";
    }

    /// A start tag whose end decides between `>` and `/>` is still open.
    void closeStart(bool isBeforeText = false)
    {
        if (!isStartOpen)
            return;
        isStartOpen = false;
        out += isBeforeText ? ">" : ">\n";
        needsLine = false;
    }

    /// Blanks and line ends must not become part of a text.
    void beforeMarkup()
    {
        closeStart();
        if (isAfterText)
            return;
        if (needsLine)
            out += '\n';
        needsLine = false;
        out += QByteArray(depth, ' ');
    }

    void begin(const QXmlStreamReader &reader, const DroppedAttribute &dropped)
    {
        const bool isPruned = reader.qualifiedName() == dropped.element;
        out += '<' + reader.qualifiedName().toUtf8();
        const QXmlStreamAttributes attributes = reader.attributes();
        for (const QXmlStreamAttribute &attribute : attributes) {
            if (!isPruned || attribute.qualifiedName() != dropped.attribute)
                out += ' ' + attribute.qualifiedName().toUtf8() + "=\""
                       + escaped(attribute.value(), true) + '"';
        }
        isStartOpen = true;
        isAfterText = false;
        needsLine = false;
        ++depth;
    }

    void end(const QXmlStreamReader &reader)
    {
        --depth;
        if (isStartOpen) {
            isStartOpen = false;
            out += "/>";
        } else {
            if (!isAfterText) {
                if (needsLine)
                    out += '\n';
                out += QByteArray(depth, ' ');
            }
            out += "</" + reader.qualifiedName().toUtf8() + '>';
        }
        isAfterText = false;
        needsLine = true;
    }

    void write(const QXmlStreamReader &reader)
    {
        closeStart(true);
        if (reader.isCDATA())
            out += "<![CDATA[" + reader.text().toUtf8() + "]]>";
        else
            out += escaped(reader.text(), false);
        isAfterText = true;
        needsLine = false;
    }

    static QByteArray escaped(QStringView text, bool isAttribute)
    {
        QString result;
        result.reserve(text.size());
        for (const QChar symbol : text) {
            if (symbol == u'<')
                result += u"&lt;"_s;
            else if (symbol == u'&')
                result += u"&amp;"_s;
            else if (symbol == u'>' && result.endsWith(u"]]"_s))
                result += u"&gt;"_s;
            else if (symbol == u'"' && isAttribute)
                result += u"&quot;"_s;
            else if (symbol == u'\r' || (isAttribute && (symbol == u'\n' || symbol == u'\t')))
                result += u"&#x%1;"_s.arg(symbol.unicode(), 0, 16);
            else
                result += symbol;
        }
        return result.toUtf8();
    }

    QByteArray out;
    qsizetype depth = 0;
    bool isStartOpen = false;
    bool isAfterText = false;
    /// A line end is due unless a text follows.
    bool needsLine = false;
};

QDomDocument selected(const QString &text, const QStringList &tags, ParseError *error,
                      Prefixes prefixes)
{
    noteLargeDocument(text.size() * qsizetype{sizeof(QChar)});
    Selection selection(tags);
    const std::optional<ParseError> reason = refusal(text, prefixes, &selection, nullptr);
    return reason ? refused(*reason, error) : selection.take();
}

template <typename Node>
QString valueByTag(const Node &node, const QString &tag, int index)
{
    // Qt's list takes a negative index for a place in memory.
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
    const std::optional<QString> text = decode(bytes);
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

QByteArray rewrittenInPieces(const QString &text, const DroppedAttribute &dropped,
                             const ReplacedChild &child)
{
    PieceWriter writer;
    Replacement replacement(child);
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    while (!reader.atEnd()) {
        reader.readNext();
        if (replacement.isDue(reader))
            writer.element(child.name, child.text);
        if (replacement.keeps(reader))
            writer.take(reader, dropped);
    }
    return reader.hasError() ? QByteArray() : writer.finish();
}

} // namespace xmlutils
