#include "rig/servicelog.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// Time, level and category of a line end within this many bytes.
constexpr qsizetype headLimit = 200;

} // namespace

QString LogRecord::line() const
{
    return u"%1 [%2] %3"_s.arg(level, category, text);
}

void ServiceLog::take(const QByteArray &bytes)
{
    qsizetype start = 0;
    for (qsizetype end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', start)) {
        takeLine(rest + bytes.mid(start, end - start));
        rest.clear();
        start = end + 1;
    }
    rest += bytes.mid(start);
}

void ServiceLog::beginRun()
{
    started.clear();
    ended.clear();
    refused.clear();
}

QString ServiceLog::text() const
{
    QString result;
    for (const LogRecord &record : all) {
        QString text = record.line();
        if (text.size() > 2000)
            text = text.left(2000) + u"… (%1 characters)"_s.arg(text.size());
        result += text + u'\n';
    }
    return result;
}

bool ServiceLog::isIdle() const
{
    for (auto type = started.begin(); type != started.end(); ++type) {
        if (ended.value(type.key()) < type.value())
            return false;
    }
    return true;
}

bool ServiceLog::isOfTheLibrary(const QByteArray &line)
{
    // Categories of the library begin with "::". At the process's end such lines may have no time,
    // or another layout.
    static const QRegularExpression event(
        u"\\b(?:TRACE|DEBUG|INFO|WARN|ERROR|FATAL)\\b[\\s\\[\\](]+::\\w"_s);
    return event.match(QString::fromUtf8(line.left(headLimit))).hasMatch();
}

void ServiceLog::takeLine(const QByteArray &line)
{
    static const QRegularExpression head(
        u"\\A\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[,.]\\d{3} ([A-Z]+) +\\[([^\\]]*)\\] "_s);
    const QRegularExpressionMatch match = head.match(QString::fromUtf8(line.left(headLimit)));
    if (match.hasMatch() ? match.captured(2).startsWith(u"::"_s) : isOfTheLibrary(line))
        return;
    if (!match.hasMatch()) {
        // A continuation line of a multi-line text, which Log4Qt does not indent.
        QString further = QString::fromUtf8(line);
        if (further.startsWith(u"    "_s))
            further.remove(0, 4);
        if (all.isEmpty())
            all.append({u"????"_s, QString(), further});
        else
            all.last().text += u'\n' + further;
        return;
    }
    const qsizetype headBytes = match.captured().toUtf8().size();
    all.append({match.captured(1), match.captured(2), QString::fromUtf8(line.mid(headBytes))});
    count(all.last());
}

void ServiceLog::count(const LogRecord &record)
{
    static const QRegularExpression start(u"\\AЗапуск обработчика типа '(.*)'\\z"_s);
    static const QRegularExpression unknown(
        u"\\AНе найден обработчик для сообщений типа '(.*)'\\z"_s);
    if (record.text == u"Обработка сообщений завершена")
        ++ended[record.category];
    else if (record.category == u"queue" && start.match(record.text).hasMatch())
        ++started[start.match(record.text).captured(1)];
    else if (record.category == u"handlerfactory" && unknown.match(record.text).hasMatch())
        ++refused[unknown.match(record.text).captured(1)];
}

} // namespace rig
