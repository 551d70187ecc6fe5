#include "shared/document/xmlutils.h"

#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

// Writes a large document token by token, without building a tree.

namespace xmlutils {

namespace {

/// Finds the place in a document where a child is replaced.
class Replacement
{
public:
    explicit Replacement(const ReplacedChild &child)
        : child(child)
    {
    }

    /// False if the token belongs to the former child.
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

    /// Whether the parent's end tag comes next, before which the new child goes.
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

/// Writes tokens in the format of QDom with an indent of 1. Attributes keep their order.
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
            // Goes on a line of its own, without an indent.
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

    /// Writes the new child.
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

    /// Completes a start tag with `>` or `/>`.
    void closeStart(bool isBeforeText = false)
    {
        if (!isStartOpen)
            return;
        isStartOpen = false;
        out += isBeforeText ? ">" : ">\n";
        needsLine = false;
    }

    /// Writes line end and indent before a tag, unless they would become part of a text.
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
    /// A line end must be written unless a text follows.
    bool needsLine = false;
};

} // namespace

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
