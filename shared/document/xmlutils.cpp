#include "shared/document/xmlutils.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <optional>

using namespace Qt::StringLiterals;

namespace xmlutils {

namespace {

/// The tree is walked and destroyed by recursion, on a worker's stack.
constexpr int maxDepth = 200;

/// The tree takes up to forty times the memory of its text. No service's document comes near.
constexpr qsizetype maxSize = 512 * 1024;

ParseError tooLarge()
{
    return {1, 1, u"документ больше 512 КиБ"_s};
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

/// Why a tree of the text would not be whole and harmless; nothing when it is both.
std::optional<ParseError> refusal(const QString &text, Prefixes prefixes)
{
    if (text.size() > maxSize)
        return tooLarge();
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(prefixes == Prefixes::Namespaces);
    const auto here = [&reader](const QString &message) {
        return ParseError{static_cast<int>(reader.lineNumber()),
                          static_cast<int>(reader.columnNumber()), message};
    };
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > maxDepth)
                return here(u"слишком глубокая вложенность"_s);
            break;
        case QXmlStreamReader::EndElement:
            --depth;
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

template <typename Node>
QString valueByTag(const Node &node, const QString &tag, int index)
{
    // Qt's list takes a negative index for a place in memory.
    if (index < 0)
        return QString();
    return node.elementsByTagName(tag).at(index).toElement().text();
}

} // namespace

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

QDomDocument parseXml(const QByteArray &bytes, ParseError *error)
{
    if (bytes.size() > maxSize) {
        if (error)
            *error = tooLarge();
        return QDomDocument();
    }
    const std::optional<QString> text = decode(bytes);
    if (text)
        return parseXmlText(*text, error);
    if (error)
        *error = {1, 1, u"текст не соответствует своей кодировке"_s};
    return QDomDocument();
}

QDomDocument parseXmlText(const QString &text, ParseError *error, Prefixes prefixes)
{
    QDomDocument document;
    const std::optional<ParseError> reason = refusal(text, prefixes);
    // setContent() keeps what it read before an error.
    if (!reason && document.setContent(text))
        return document;
    if (error)
        *error = reason.value_or(ParseError{1, 1, u"документ не читается"_s});
    return QDomDocument();
}

} // namespace xmlutils
