#include "tools/queuectl/servicelog.h"

#include "shared/core/paths.h"
#include "shared/text/escaping.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/text.h"

#include <log4qt/helpers/properties.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 maxBytes = 8 * 1024 * 1024;
const QString isoFormat = u"yyyy-MM-dd HH:mm:ss,zzz"_s;
const QString announcement = u"Обработка сообщения: "_s;
const QString usualPattern = u"%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n"_s;

struct LogPlace
{
    ServiceLog::State state = ServiceLog::State::None;
    QString file;
    QString pattern;
};

/// `${name}` stands for another property or a variable of the environment.
QString resolved(QString value, const Log4Qt::Properties &properties)
{
    static const QRegularExpression reference(uR"(\$\{([^}]+)\})"_s);
    // A property that names itself would never end.
    for (int i = 0; i < 10; ++i) {
        const QRegularExpressionMatch match = reference.match(value);
        if (!match.hasMatch())
            break;
        const QString name = match.captured(1);
        const QString replacement = properties.contains(name)
                                        ? properties.property(name)
                                        : qEnvironmentVariable(name.toLocal8Bit().constData());
        value.replace(match.capturedStart(), match.capturedLength(), replacement);
    }
    return value;
}

LogPlace findLog()
{
    QString path = qEnvironmentVariable("LOG4QT_CONFIGURATION");
    if (path.isEmpty())
        path = rootedPath(u"/tallocash/cash/queue/config/log4qt.properties"_s);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {fileAccess(path) == FileAccess::Denied ? ServiceLog::State::Denied
                                                       : ServiceLog::State::None,
                {},
                {}};
    Log4Qt::Properties properties;
    properties.load(&file);

    static const QRegularExpression appender(uR"(^log4j\.appender\.([^.]+)$)"_s);
    QStringList keys = properties.keys();
    keys.sort();
    const QStringList used = properties.property(u"log4j.rootLogger"_s).split(u',');
    for (const QString &key : std::as_const(keys)) {
        const QRegularExpressionMatch match = appender.match(key);
        if (!match.hasMatch() || !properties.property(key).endsWith(u"FileAppender"_s))
            continue;
        const bool isUsed = std::any_of(used.cbegin(), used.cend(), [&](const QString &name) {
            return name.trimmed() == match.captured(1);
        });
        if (!isUsed)
            continue;
        const auto option = [&](const QString &name) {
            const QString value = properties.property(key + u'.' + name);
            const QString capital = name.left(1).toUpper() + name.mid(1);
            return resolved(value.isEmpty() ? properties.property(key + u'.' + capital) : value,
                            properties);
        };
        const QString pattern = option(u"layout.conversionPattern"_s);
        const QString logFile = option(u"file"_s);
        const FileAccess access = fileAccess(logFile);
        return {access == FileAccess::Readable ? ServiceLog::State::Read
                : access == FileAccess::Denied ? ServiceLog::State::Denied
                                               : ServiceLog::State::Missing,
                logFile, pattern.isEmpty() ? usualPattern : pattern};
    }
    return {};
}

/// How a line of the log is taken apart.
struct LineFormat
{
    QRegularExpression expression;
    QString timeFormat = isoFormat;
    // The number of the group for each part; 0 for a part that the pattern does not show.
    int time = 0;
    int level = 0;
    int category = 0;
    int text = 0;
};

LineFormat lineFormat(const QString &pattern)
{
    static const QRegularExpression conversion(
        uR"(%(?:-?\d+)?(?:\.\d+)?([a-zA-Z%])(?:\{([^}]*)\})?)"_s);
    LineFormat format;
    QString expression = u"^"_s;
    int groups = 0;
    qsizetype position = 0;
    auto matches = conversion.globalMatch(pattern);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        expression +=
            QRegularExpression::escape(pattern.mid(position, match.capturedStart() - position));
        position = match.capturedEnd();
        switch (match.captured(1).at(0).unicode()) {
        case u'd':
            if (!match.captured(2).isEmpty() && match.captured(2) != u"ISO8601")
                format.timeFormat = match.captured(2).replace(u"SSS"_s, u"zzz"_s);
            expression += u"(\\d.*?)"_s;
            format.time = ++groups;
            break;
        case u'p':
            expression += u"\\s*([A-Z]+)\\s*"_s;
            format.level = ++groups;
            break;
        case u'c':
            expression += u"\\s*(\\S+?)\\s*"_s;
            format.category = ++groups;
            break;
        case u'm':
            expression += u"(.*)"_s;
            format.text = ++groups;
            break;
        case u'n':
            break;
        case u'%':
            expression += u'%';
            break;
        default:
            expression += u".*?"_s;
            break;
        }
    }
    expression += QRegularExpression::escape(pattern.mid(position)) + u'$';
    format.expression.setPattern(expression);
    return format;
}

QByteArray tail(const QString &path, qint64 bytes)
{
    QFile file(path);
    if (path.isEmpty() || bytes <= 0 || !file.open(QIODevice::ReadOnly))
        return {};
    if (file.size() <= bytes)
        return file.readAll();
    file.seek(file.size() - bytes);
    // The first line is cut off.
    file.readLine();
    return file.readAll();
}

/// The file that was the log before it was rolled over, or an empty text.
QString formerFile(const QString &path)
{
    const QFileInfo info(path);
    const QFileInfoList former =
        info.dir().entryInfoList({info.fileName() + u".*"_s}, QDir::Files, QDir::Time);
    for (const QFileInfo &file : former) {
        if (!file.fileName().endsWith(u".gz"_s))
            return file.filePath();
    }
    return {};
}

QString attemptKey(const QString &type, const QString &bodyOrId)
{
    return type + u'\n' + bodyOrId;
}

bool isEndOfService(const LogLine &line)
{
    return line.text == u"Получен сигнал завершения работы";
}

} // namespace

ServiceLog ServiceLog::read()
{
    ServiceLog log;
    const LogPlace place = findLog();
    log.state_ = place.state;
    log.file_ = place.file;
    if (place.file.isEmpty())
        return log;
    const QByteArray current = tail(place.file, maxBytes);
    const QByteArray former = tail(formerFile(place.file), maxBytes - current.size());
    log.lines_ = parse(QString::fromUtf8(former + current), place.pattern);
    log.learn();
    log.learnAttempts();
    return log;
}

bool ServiceLog::isCompleteSince(const QDateTime &time) const
{
    if (lines_.isEmpty() || !time.isValid())
        return false;
    // Attempts are announced at level info.
    const bool hasInfo = std::any_of(lines_.cbegin(), lines_.cend(),
                                     [](const LogLine &line) { return line.level == u"INFO"; });
    return hasInfo && lines_.first().time.isValid() && lines_.first().time <= time;
}

std::optional<Attempt> ServiceLog::lastAttempt(const QString &type, const QString &body,
                                               int id) const
{
    const auto byId = attempts.constFind(attemptKey(type, QString::number(id)));
    if (byId != attempts.constEnd())
        return *byId;
    auto byBody = attempts.constFind(attemptKey(type, body));
    if (byBody == attempts.constEnd()) {
        // The log has the beginning of a long body only.
        const QString shown = escaping::unescaped(escaping::logText(announcement + body));
        byBody = attempts.constFind(attemptKey(type, shown.mid(announcement.size())));
    }
    return byBody == attempts.constEnd() ? std::nullopt : std::optional<Attempt>(*byBody);
}

QList<LogLine> ServiceLog::parse(const QString &content, const QString &pattern)
{
    const LineFormat format = lineFormat(pattern.isEmpty() ? usualPattern : pattern);
    QList<LogLine> result;
    const QStringList lines = content.split(u'\n');
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = format.expression.match(line);
        const QDateTime time =
            match.hasMatch() && format.time > 0
                ? QDateTime::fromString(match.captured(format.time), format.timeFormat)
                : QDateTime();
        if (!match.hasMatch() || (format.time > 0 && !time.isValid())) {
            // A text of several lines.
            if (!result.isEmpty() && !line.isEmpty())
                result.last().text += u'\n' + line;
            continue;
        }
        LogLine entry;
        entry.time = time;
        if (format.level > 0)
            entry.level = match.captured(format.level);
        if (format.category > 0)
            entry.category = match.captured(format.category);
        if (format.text > 0)
            entry.text = match.captured(format.text);
        result.append(entry);
    }
    for (LogLine &entry : result)
        entry.text = escaping::unescaped(entry.text);
    return result;
}

void ServiceLog::learn()
{
    static const QRegularExpression status(
        uR"(^  (\S+): \d+ сообщ\. \(обработчик (не )?активен\)$)"_s);
    for (const LogLine &line : std::as_const(lines_)) {
        if (line.category == u"queue") {
            const QRegularExpressionMatch match = status.match(line.text);
            if (match.hasMatch())
                histories[match.captured(1)].isWorkerActive = match.captured(2).isEmpty();
            continue;
        }
        TypeHistory &history = histories[line.category];
        if (line.text.startsWith(u"Удаление сообщения "_s)) {
            history.lastDelivery = line.time;
            history.failingSince = {};
        } else if (line.isFailure() && !isEndOfService(line)) {
            history.lastFailure = line;
            if (!history.failingSince.isValid())
                history.failingSince = line.time;
        }
    }
}

void ServiceLog::learnAttempts()
{
    static const QRegularExpression announced(u'^' + announcement + u"(.*)$"_s,
                                              QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression numbered(
        uR"(^(?:Отправка|Обработка) сообщения (?:.* )?(\d+)$)"_s);
    // The keys under which the attempt at hand of each type is known.
    struct Open
    {
        QString byBody;
        QString byId;
    };
    QHash<QString, Open> open;
    for (const LogLine &line : std::as_const(lines_)) {
        Open &current = open[line.category];
        const QRegularExpressionMatch body = announced.match(line.text);
        const QRegularExpressionMatch id = numbered.match(line.text);
        if (body.hasMatch()) {
            current = {attemptKey(line.category, body.captured(1)), {}};
            attempts.insert(current.byBody, {line.time, {}});
            attemptedTypes.insert(line.category);
        } else if (id.hasMatch()) {
            // Handlers that choose among their messages announce each by its id alone.
            if (!current.byId.isEmpty())
                current = {};
            current.byId = attemptKey(line.category, id.captured(1));
            attemptedTypes.insert(line.category);
            attempts.insert(current.byId, attempts.value(current.byBody, {line.time, {}}));
        } else if (line.text.startsWith(u"Удаление сообщения "_s)) {
            attempts.remove(current.byBody);
            attempts.remove(current.byId);
            current = {};
        } else if (line.text.startsWith(u"Обработчик "_s)) {
            current = {};
        } else if (line.isFailure() && !isEndOfService(line)) {
            for (const QString &key : {current.byBody, current.byId}) {
                if (!key.isEmpty())
                    attempts[key].failures.append(line);
            }
        }
    }
}

Cause causeOf(const QString &failureText)
{
    static const QRegularExpression status(uR"(HTTP (\d{3}))"_s);
    const QRegularExpressionMatch match = status.match(failureText);
    if (match.hasMatch()) {
        const int code = match.captured(1).toInt();
        if (code == 401 || code == 403)
            return Cause::Credentials;
        if (code == 408 || code == 429 || code >= 500)
            return Cause::Service;
        return Cause::Request;
    }
    static const QString certificateSigns[] = {u"ертификат"_s, u"защищённое соединение"_s,
                                               u"openssl"_s};
    for (const QString &sign : certificateSigns) {
        if (failureText.contains(sign))
            return Cause::Certificate;
    }
    static const QString networkSigns[] = {
        u"отклонил соединение"_s, u"закрыл соединение"_s, u"Не найден адрес"_s, u"не ответил"_s,
        u"Обмен с сервером"_s,    u"Прокси-сервер"_s,     u"соедин"_s,
    };
    for (const QString &sign : networkSigns) {
        if (failureText.contains(sign))
            return Cause::Network;
    }
    static const QString requestSigns[] = {u"адрес запроса"_s, u"метод запроса"_s};
    for (const QString &sign : requestSigns) {
        if (failureText.contains(sign))
            return Cause::Request;
    }
    return Cause::Other;
}

QString causeName(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return u"network"_s;
    case Cause::Certificate:
        return u"certificate"_s;
    case Cause::Credentials:
        return u"credentials"_s;
    case Cause::Request:
        return u"request"_s;
    case Cause::Service:
        return u"service"_s;
    case Cause::Turn:
        return u"turn"_s;
    case Cause::Unknown:
        return u"unknown"_s;
    case Cause::NoHandler:
        return u"no-handler"_s;
    case Cause::Body:
        return u"body"_s;
    case Cause::Other:
        break;
    }
    return u"other"_s;
}

QString causeText(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return text("cannot be reached", "нет связи");
    case Cause::Certificate:
        return text("certificate", "сертификат");
    case Cause::Credentials:
        return text("account or key refused", "отказ в доступе");
    case Cause::Request:
        return text("request refused", "запрос отклонён");
    case Cause::Service:
        return text("service in trouble", "сбой внешней службы");
    case Cause::Turn:
        return text("waits for its turn", "ждёт очереди");
    case Cause::Unknown:
        return text("not known", "неизвестно");
    case Cause::NoHandler:
        return text("nobody delivers this type", "тип никто не доставляет");
    case Cause::Body:
        return text("body is no JSON object", "тело не объект JSON");
    case Cause::Other:
        break;
    }
    return text("refused", "отказ");
}

} // namespace queuectl
