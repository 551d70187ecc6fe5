#include "log4qt/helpers/properties.h"

#include <QIODevice>

using namespace Qt::StringLiterals;

namespace Log4Qt {

namespace {

bool endsJoined(QStringView line)
{
    qsizetype backslashes = 0;
    while (backslashes < line.size() && line[line.size() - 1 - backslashes] == u'\\')
        ++backslashes;
    return backslashes % 2 == 1;
}

/// Replaces \t, \n, \r, \\, \uXXXX and a backslash before any other character.
QString unescaped(QStringView text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype at = 0; at < text.size(); ++at) {
        if (text[at] != u'\\' || at + 1 == text.size()) {
            result += text[at];
            continue;
        }
        const QChar code = text[++at];
        if (code == u't') {
            result += u'\t';
        } else if (code == u'n') {
            result += u'\n';
        } else if (code == u'r') {
            result += u'\r';
        } else if (code == u'u') {
            bool isHex = false;
            const uint value = text.mid(at + 1, 4).toUInt(&isHex, 16);
            if (isHex && at + 4 < text.size()) {
                result += QChar(static_cast<char16_t>(value));
                at += 4;
            } else {
                result += code;
            }
        } else {
            result += code;
        }
    }
    return result;
}

/// The end of the key: the first blank, '=' or ':' without a backslash before it.
qsizetype keyLength(QStringView line)
{
    qsizetype at = 0;
    while (at < line.size() && line[at] != u'=' && line[at] != u':' && !line[at].isSpace())
        at += line[at] == u'\\' ? 2 : 1;
    return std::min(at, line.size());
}

} // namespace

void Properties::load(QIODevice *device)
{
    QString text = QString::fromUtf8(device->readAll());
    if (text.startsWith(QChar::ByteOrderMark))
        text.remove(0, 1);
    const QStringList lines = text.split(u'\n');
    for (qsizetype at = 0; at < lines.size(); ++at) {
        QString line = lines[at].trimmed();
        if (line.isEmpty() || line[0] == u'#' || line[0] == u'!')
            continue;
        while (endsJoined(line) && at + 1 < lines.size()) {
            line.chop(1);
            line += lines[++at].trimmed();
        }
        const qsizetype length = keyLength(line);
        QStringView value = QStringView(line).mid(length).trimmed();
        if (value.startsWith(u'=') || value.startsWith(u':'))
            value = value.mid(1).trimmed();
        insert(unescaped(QStringView(line).left(length)), unescaped(value));
    }
}

} // namespace Log4Qt
