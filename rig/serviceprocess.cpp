#include "rig/serviceprocess.h"

#include "rig/error.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// Where in a line its time, level and category end at the latest, in bytes.
constexpr qsizetype headLimit = 200;

/// Everything to standard output, so that the end of a worker, a debug line, can be waited for.
/// Log4Qt itself is told to be quiet about its own work.
constexpr auto loggingProperties = "log4j.Debug=OFF\n"
                                   "log4j.logger.\\:\\:LoggerRepository=OFF\n"
                                   "log4j.rootLogger=DEBUG, console\n"
                                   "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
                                   "log4j.appender.console.target=STDOUT_TARGET\n"
                                   "log4j.appender.console.layout=org.apache.log4j.PatternLayout\n"
                                   "log4j.appender.console.layout.ConversionPattern="
                                   "%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n\n";

/// Whether the line is an event of Log4Qt's own, whose categories begin with "::". It may come when
/// the process is nearly gone, with no time or in a layout that no settings name.
bool isOfTheLibrary(const QByteArray &line)
{
    static const QRegularExpression event(
        u"\\b(?:TRACE|DEBUG|INFO|WARN|ERROR|FATAL)\\b[\\s\\[\\](]+::\\w"_s);
    return event.match(QString::fromUtf8(line.left(headLimit))).hasMatch();
}

} // namespace

QString LogRecord::line() const
{
    return u"%1 [%2] %3"_s.arg(level, category, text);
}

ServiceProcess::ServiceProcess(const QString &program, const QString &root,
                               const QMap<QString, QString> &environment)
{
    const QString properties = root + u"/log4qt.properties"_s;
    QFile file(properties);
    if (!file.open(QIODevice::WriteOnly) || file.write(loggingProperties) < 0)
        throw Error(u"%1: %2"_s.arg(properties, file.errorString()));
    file.close();

    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    for (const QString &name :
         {u"http_proxy"_s, u"https_proxy"_s, u"HTTP_PROXY"_s, u"HTTPS_PROXY"_s, u"ALL_PROXY"_s,
          u"all_proxy"_s, u"NOTIFY_SOCKET"_s})
        variables.remove(name);
    variables.insert(u"QUEUE_ROOT"_s, root);
    variables.insert(u"LOG4QT_CONFIGURATION"_s, properties);
    variables.insert(u"TMPDIR"_s, root + u"/tmp"_s);
    variables.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    variables.insert(u"QT_FORCE_STDERR_LOGGING"_s, u"1"_s);
    for (auto variable = environment.begin(); variable != environment.end(); ++variable)
        variables.insert(variable.key(), variable.value());
    process.setProcessEnvironment(variables);
    process.setProgram(program);
    process.setWorkingDirectory(root);
    process.setChildProcessModifier([parent = ::getpid()] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(1);
    });
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &process, [this] { read(); });
    QObject::connect(&process, &QProcess::readyReadStandardError, &process,
                     [this] { errorBytes += process.readAllStandardError(); });
}

ServiceProcess::~ServiceProcess()
{
    process.disconnect();
    if (process.state() == QProcess::NotRunning)
        return;
    process.kill();
    process.waitForFinished(-1);
}

void ServiceProcess::start()
{
    started.clear();
    ended.clear();
    refused.clear();
    wasStarted = true;
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        throw Error(u"%1: %2"_s.arg(process.program(), process.errorString()));
}

void ServiceProcess::terminate()
{
    process.terminate();
}

void ServiceProcess::kill()
{
    process.kill();
}

bool ServiceProcess::isRunning() const
{
    return process.state() != QProcess::NotRunning;
}

qint64 ServiceProcess::processId() const
{
    return process.processId();
}

bool ServiceProcess::hasEnded() const
{
    return wasStarted && process.state() == QProcess::NotRunning;
}

QString ServiceProcess::endFault() const
{
    if (process.exitStatus() == QProcess::CrashExit)
        return u"the service ended by signal %1"_s.arg(process.exitCode());
    if (process.exitCode() != 0)
        return u"the service ended with exit code %1"_s.arg(process.exitCode());
    return {};
}

const QList<LogRecord> &ServiceProcess::log() const
{
    return records;
}

QString ServiceProcess::logText() const
{
    QString result;
    for (const LogRecord &record : records) {
        QString text = record.line();
        if (text.size() > 2000)
            text = text.left(2000) + u"… (%1 characters)"_s.arg(text.size());
        result += text + u'\n';
    }
    return result;
}

QString ServiceProcess::errors() const
{
    QByteArrayList lines = errorBytes.split('\n');
    lines.removeIf(isOfTheLibrary);
    return QString::fromUtf8(lines.join('\n'));
}

int ServiceProcess::starts(const QString &type) const
{
    return started.value(type);
}

int ServiceProcess::ends(const QString &type) const
{
    return ended.value(type);
}

int ServiceProcess::refusals(const QString &type) const
{
    return refused.value(type);
}

bool ServiceProcess::isIdle() const
{
    for (auto type = started.begin(); type != started.end(); ++type) {
        if (ended.value(type.key()) < type.value())
            return false;
    }
    return true;
}

void ServiceProcess::read()
{
    const QByteArray arrived = process.readAllStandardOutput();
    qsizetype start = 0;
    for (qsizetype end = arrived.indexOf('\n'); end >= 0; end = arrived.indexOf('\n', start)) {
        take(rest + arrived.mid(start, end - start));
        rest.clear();
        start = end + 1;
    }
    rest += arrived.mid(start);
}

void ServiceProcess::take(const QByteArray &line)
{
    static const QRegularExpression head(
        u"\\A\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d[,.]\\d{3} ([A-Z]+) +\\[([^\\]]*)\\] "_s);
    const QRegularExpressionMatch match = head.match(QString::fromUtf8(line.left(headLimit)));
    if (match.hasMatch() ? match.captured(2).startsWith(u"::"_s) : isOfTheLibrary(line))
        return;
    if (!match.hasMatch()) {
        // The further lines of a text that has several, which Log4Qt does not indent.
        QString further = QString::fromUtf8(line);
        if (further.startsWith(u"    "_s))
            further.remove(0, 4);
        if (records.isEmpty())
            records.append({u"????"_s, QString(), further});
        else
            records.last().text += u'\n' + further;
        return;
    }
    const qsizetype headBytes = match.captured().toUtf8().size();
    records.append({match.captured(1), match.captured(2), QString::fromUtf8(line.mid(headBytes))});

    const LogRecord &record = records.last();
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
