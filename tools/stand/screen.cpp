#include "tools/stand/screen.h"

#include "rig/scriptedpeer.h"

#include <QLocale>

#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

/// Indented, each line marked with its direction; a long body is cut.
QString marked(const QString &mark, const QString &text)
{
    constexpr qsizetype longest = 4096;
    QString shown = text.left(longest);
    if (text.size() > longest)
        shown += u" ..."_s;
    const QString begin = u"\n    "_s + mark;
    return begin + shown.remove(u'\r').replace(u'\n', begin);
}

} // namespace

QString say(const QString &russian, const QString &english)
{
    static const bool isRussian = QLocale::system().language() == QLocale::Russian;
    return isRussian ? russian : english;
}

void print(const QString &text)
{
    std::fputs(qPrintable(text + u'\n'), stdout);
    std::fflush(stdout);
}

QString coloured(const QString &text, bool isGood)
{
    static const bool isTerminal =
        ::isatty(STDOUT_FILENO) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR");
    if (!isTerminal)
        return text;
    return u"\u001b[%1m%2\u001b[0m"_s.arg(isGood ? 32 : 31).arg(text);
}

QString quoted(const rig::Traffic &traffic)
{
    QString text;
    for (const auto &[name, value] : traffic.request.headers)
        text += marked(u"> "_s, name + u": "_s + value);
    if (!traffic.request.body.isEmpty())
        text += marked(u"> "_s, QString::fromUtf8(traffic.request.body));
    if (traffic.status != 0) {
        text += marked(u"< "_s, QString::number(traffic.status));
        for (auto header = traffic.reply.headers.begin(); header != traffic.reply.headers.end();
             ++header)
            text += marked(u"< "_s, header.key() + u": "_s + header.value());
        if (!traffic.reply.body.isEmpty())
            text += marked(u"< "_s, QString::fromUtf8(traffic.reply.body));
    }
    return text.mid(1);
}

} // namespace stand
