#include "shared/document/xmldecoding.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <QTextCodec>

using namespace Qt::StringLiterals;

namespace xmlutils {

namespace {

std::optional<QString> decodeUnicode(QStringConverter::Encoding encoding, const QByteArray &bytes)
{
    // With a state, half a letter at the end would wait for its other half.
    QStringDecoder decoder(encoding, QStringConverter::Flag::Stateless);
    const QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<QString> decodeByCodec(const QTextCodec &codec, const QByteArray &bytes)
{
    // ICU's codecs replace bad bytes without counting them. The line end, which a document may
    // have, lets them notice half a letter at the end. Only GB18030 can encode the replacement
    // itself.
    const QString text = codec.toUnicode(bytes + '\n');
    if (text.contains(QChar::ReplacementCharacter))
        return std::nullopt;
    return text;
}

} // namespace

std::optional<QString> decodeXml(const QByteArray &bytes)
{
    if (const auto unicode = QStringConverter::encodingForData(bytes, u'<'))
        return decodeUnicode(*unicode, bytes);

    static const QRegularExpression declaration(
        u"^<\\?xml\\s[^>]*encoding\\s*=\\s*[\"']([A-Za-z0-9._-]+)[\"']"_s);
    constexpr qsizetype declarationBytes = 200;
    const QString name =
        declaration.match(QString::fromLatin1(bytes.left(declarationBytes))).captured(1).toLower();
    // A declaration that is readable as bytes is not UTF-16, whatever it says.
    if (name.isEmpty() || name.startsWith(u"utf"))
        return decodeUnicode(QStringConverter::Utf8, bytes);

    const QTextCodec *codec = QTextCodec::codecForName(name.toLatin1());
    if (!codec)
        return std::nullopt;
    return decodeByCodec(*codec, bytes);
}

} // namespace xmlutils
