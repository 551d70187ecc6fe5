#include "shared/document/xmldecoding.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <QTextCodec>

using namespace Qt::StringLiterals;

namespace xmlutils {

namespace {

std::optional<QString> decodeUnicode(QStringConverter::Encoding encoding, const QByteArray &bytes)
{
    QStringDecoder decoder(encoding);
    const QString text = decoder(bytes);
    if (decoder.hasError())
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
    QTextCodec::ConverterState state;
    const QString text =
        codec->toUnicode(bytes.constData(), static_cast<int>(bytes.size()), &state);
    if (state.invalidChars > 0)
        return std::nullopt;
    return text;
}

} // namespace xmlutils
