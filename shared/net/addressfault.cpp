#include "shared/net/addressfault.h"

#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maxShownSize = 200;

/// The text that the till wrote. QUrl does not keep the text of an invalid address but quotes it in
/// its error: `Invalid port ...; source was "http://host:99999/"; scheme = "http", host = ...`. If
/// only a part is invalid, only that part is quoted.
QString writtenText(const QUrl &url)
{
    if (url.isValid())
        return url.toString();
    const QString text = url.errorString().section(u"; source was \""_s, 1);
    // Of the parts that it could read the first one follows.
    qsizetype end = -1;
    for (const QLatin1StringView next :
         {"\"; scheme = \""_L1, "\"; userinfo = \""_L1, "\"; host = \""_L1, "\"; path = \""_L1}) {
        if (end < 0)
            end = text.lastIndexOf(next);
    }
    return text.left(end);
}

bool beginsWithBlank(const QString &text)
{
    // QUrl percent-encodes some characters in the quotation.
    static constexpr QLatin1StringView encoded[] = {"%09"_L1, "%0A"_L1, "%0D"_L1, "%20"_L1};
    return (!text.isEmpty() && text.front().isSpace())
           || std::ranges::any_of(
               encoded, [&text](QLatin1StringView code) { return text.startsWith(code); });
}

bool isWeb(const QUrl &url)
{
    const QString scheme = url.scheme();
    return scheme == u"http" || scheme == u"https";
}

bool isUsable(const QUrl &url)
{
    return url.isValid() && isWeb(url) && !url.host().isEmpty() && url.port() != 0;
}

QString reason(const QUrl &url, const QString &text)
{
    if (!isWeb(url))
        return beginsWithBlank(text) ? u"перед адресом пробел"_s
                                     : u"адрес должен начинаться с http:// или https://"_s;
    // If only the port of an address is invalid, QUrl keeps the host.
    if (!url.host().isEmpty())
        return u"порт должен быть числом от 1 до 65535"_s;
    if (url.isValid())
        return u"нет имени сервера"_s;
    return text.count(u'@') > 1 ? u"знак @ в имени или пароле пишется как %40"_s
                                : u"недопустимое имя сервера"_s;
}

} // namespace

QString maskedAddress(const QString &text)
{
    QString shown = text;
    const qsizetype scheme = shown.indexOf("://"_L1);
    const qsizetype start = scheme < 0 ? 0 : scheme + 3;
    // A password may contain any character, even unescaped. So everything before the last @ may be
    // part of it, and the rest may be part of a query.
    const qsizetype at = shown.lastIndexOf(u'@');
    const auto queryStart = [&shown] {
        const auto sign = std::find_if(shown.cbegin(), shown.cend(), [](QChar symbol) {
            return symbol == u'?' || symbol == u'#';
        });
        return sign - shown.cbegin();
    };
    if (at >= start)
        shown = shown.first(start) + u"***"_s + (queryStart() < at ? QString() : shown.mid(at));
    const qsizetype query = queryStart();
    if (query < shown.size() - 1)
        shown = shown.first(query + 1) + u"***"_s;
    if (shown.size() > maxShownSize)
        shown = shown.first(maxShownSize) + u'…';
    for (QChar &symbol : shown) {
        if (symbol.category() == QChar::Other_Control)
            symbol = u'.';
    }
    return shown;
}

QString shownAddress(const QUrl &url)
{
    return url.isValid() ? url.toDisplayString() : maskedAddress(writtenText(url));
}

tr::Tr addressFault(const QUrl &url)
{
    if (isUsable(url))
        return {};
    if (url.isEmpty() && url.errorString().isEmpty())
        return {u"networkErrorAddress"_s, u"Не указан адрес запроса"_s};
    const QString text = writtenText(url);
    return {u"networkErrorAddress"_s,
            u"Недопустимый адрес запроса '%1': %2"_s.arg(maskedAddress(text), reason(url, text))};
}
