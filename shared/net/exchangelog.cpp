#include "shared/net/exchangelog.h"

#include <QUrlQuery>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maxLoggedSize = 4096;

/// A message may contain a service's key in a header or in the query; its name shows that.
bool isSecretName(const QString &name)
{
    static constexpr QLatin1StringView marks[] = {
        "password"_L1, "passwd"_L1, "token"_L1,         "secret"_L1, "api-key"_L1,
        "api_key"_L1,  "apikey"_L1, "authorization"_L1, "cookie"_L1,
    };
    static constexpr QLatin1StringView words[] = {"pwd"_L1, "pass"_L1};
    const auto isWord = [&name](QLatin1StringView word) {
        return name.compare(word, Qt::CaseInsensitive) == 0;
    };
    const auto isMarked = [&name](QLatin1StringView mark) {
        return name.contains(mark, Qt::CaseInsensitive);
    };
    return std::ranges::any_of(words, isWord) || std::ranges::any_of(marks, isMarked);
}

QUrl withoutSecrets(QUrl url)
{
    if (!url.password().isEmpty())
        url.setPassword(u"***"_s);
    if (!url.hasQuery())
        return url;
    auto items = QUrlQuery(url).queryItems(QUrl::FullyEncoded);
    bool isMasked = false;
    for (auto &[name, value] : items) {
        if (isSecretName(name)) {
            value = u"***"_s;
            isMasked = true;
        }
    }
    if (isMasked) {
        QUrlQuery query;
        query.setQueryItems(items);
        url.setQuery(query);
    }
    return url;
}

/// A refused header name for the log, cut where a value may begin: the till may have written a
/// whole line into the name.
QString shownName(const QByteArray &name)
{
    constexpr qsizetype maxShownSize = 64;
    const QString text = QString::fromUtf8(name);
    qsizetype size = 0;
    while (size < std::min(text.size(), maxShownSize) && text.at(size).isPrint()
           && !u" :;=,"_s.contains(text.at(size)))
        ++size;
    return size < text.size() ? text.first(size) + u'…' : text;
}

} // namespace

QString exchangelog::excerpt(const QByteArray &bytes, qsizetype omitted)
{
    QByteArray start = bytes.left(maxLoggedSize);
    if (start.size() < bytes.size()) {
        // Not in the middle of a UTF-8 character.
        while (!start.isEmpty() && (bytes.at(start.size()) & 0xC0) == 0x80)
            start.chop(1);
    }
    QString text = QString::fromUtf8(start);
    text.replace(u"\r\n"_s, u"\\n"_s).replace(u'\n', u"\\n"_s);
    for (QChar &symbol : text) {
        if (symbol.category() == QChar::Other_Control)
            symbol = u'.';
    }
    const qsizetype total = bytes.size() + omitted;
    return start.size() == total ? text : text + u"… (всего байт: %1)"_s.arg(total);
}

QString exchangelog::addressText(const QUrl &url)
{
    return QString::fromUtf8(withoutSecrets(url).toEncoded());
}

QString exchangelog::headersText(const QList<QByteArray> &lines, qsizetype omittedBytes,
                                 const QStringList &secretNames)
{
    QByteArrayList shown;
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QString name = QString::fromUtf8(line.left(colon)).trimmed();
        const bool isSecret =
            colon >= 0 && (isSecretName(name) || secretNames.contains(name, Qt::CaseInsensitive));
        shown.append(isSecret ? line.left(colon) + ": ***" : line);
    }
    return excerpt(shown.join("; "), omittedBytes);
}

QString exchangelog::refusedHeadersText(const QByteArrayList &names)
{
    constexpr qsizetype maxShown = 10;
    QStringList shown;
    for (const QByteArray &name : names.first(std::min(names.size(), maxShown)))
        shown.append(u'\'' + shownName(name) + u'\'');
    if (names.size() > maxShown)
        shown.append(u"…"_s);
    return u"Заголовки с недопустимыми именами не отправлены (%1): %2"_s.arg(
        QString::number(names.size()), shown.join(u", "_s));
}
