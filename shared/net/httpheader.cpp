#include "shared/net/httpheader.h"

#include "shared/net/headertext.h"

#include <algorithm>
#include <cctype>

using namespace Qt::StringLiterals;

namespace {

/// The path of a request target: the part between the server's name, if any, and the query.
QByteArray encodedPath(QByteArray target)
{
    const auto isEnd = [](char c) {
        return c == '?' || c == '#';
    };
    target.truncate(std::find_if(target.cbegin(), target.cend(), isEnd) - target.cbegin());

    for (const QByteArrayView scheme : {QByteArrayView("http://"), QByteArrayView("https://")}) {
        if (target.left(scheme.size()).toLower() != scheme)
            continue;
        const qsizetype slash = target.indexOf('/', scheme.size());
        return slash < 0 ? QByteArray("/") : target.mid(slash);
    }
    return target;
}

QString decoded(const QByteArray &path)
{
    QByteArray bytes;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const QByteArray digits = path.mid(i + 1, 2);
        const bool isCode = path[i] == '%' && digits.size() == 2 && std::isxdigit(uchar(digits[0]))
                            && std::isxdigit(uchar(digits[1]));
        if (isCode) {
            const QByteArray byte = QByteArray::fromHex(digits);
            bytes += byte == "/" ? QByteArray("%2F") : byte;
            i += digits.size();
        } else {
            bytes += path[i];
        }
    }
    return QString::fromUtf8(bytes);
}

} // namespace

void BasicHeader::setContentType(const QString &type)
{
    setValue("Content-Type", type.toUtf8());
}

void BasicHeader::setContentLength(int bytes)
{
    setValue("Content-Length", QByteArray::number(bytes));
}

void BasicHeader::setValue(const QByteArray &name, const QByteArray &value)
{
    for (auto &line : lines) {
        if (line.first.compare(name, Qt::CaseInsensitive) == 0) {
            line.second = value;
            return;
        }
    }
    lines.append({name, value});
}

QByteArray BasicHeader::value(const QByteArray &name) const
{
    for (const auto &line : lines) {
        if (line.first.compare(name, Qt::CaseInsensitive) == 0)
            return line.second;
    }
    return QByteArray();
}

bool BasicHeader::contains(const QByteArray &name) const
{
    return std::any_of(lines.cbegin(), lines.cend(), [&name](const auto &line) {
        return line.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

QByteArray BasicHeader::toByteArray() const
{
    QByteArray result;
    for (const auto &[name, value] : lines)
        result += http::oneLine(name) + ": " + http::oneLine(value) + "\r\n";
    return result;
}

RequestHeader::RequestHeader(const QByteArray &requestLine)
{
    const QList<QByteArray> words = requestLine.simplified().split(' ');
    method = words.value(0);
    path = decoded(encodedPath(words.value(1)));
    isHttp11 = words.value(2) == "HTTP/1.1";
}

bool RequestHeader::isKeepAlive() const
{
    const QByteArray connection = value("Connection").toLower();
    return isHttp11 ? !connection.contains("close") : connection.contains("keep-alive");
}

void ResponseHeader::setStatusLine(int newCode, const QString &newReason, int newMajor,
                                   int newMinor)
{
    code = newCode;
    reason = newReason;
    major_ = newMajor;
    minor_ = newMinor;
}

QByteArray ResponseHeader::statusLine() const
{
    return "HTTP/" + QByteArray::number(major_) + '.' + QByteArray::number(minor_) + ' '
           + QByteArray::number(code) + ' ' + http::oneLine(reason.toUtf8()) + "\r\n";
}
