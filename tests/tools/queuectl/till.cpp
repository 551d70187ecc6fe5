#include "tests/tools/queuectl/till.h"

#include "rig/childprocess.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QProcess>

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int limitMs = 60'000;
const QString timeFormat = u"yyyy-MM-dd HH:mm:ss"_s;

QString program()
{
    return QStringLiteral(QUEUECTL_PROGRAM);
}

void requireEnd(QProcess &process, const QStringList &arguments)
{
    if (process.state() == QProcess::NotRunning && process.error() != QProcess::FailedToStart
        && process.exitStatus() == QProcess::NormalExit)
        return;
    qFatal("queuectl %s: %s\n%s", qPrintable(arguments.join(u' ')),
           qPrintable(process.errorString()), process.readAllStandardError().constData());
}

} // namespace

QJsonObject CommandResult::json() const
{
    const QJsonDocument document = QJsonDocument::fromJson(out.toUtf8());
    if (!document.isObject())
        qWarning("no JSON object: %s\n%s", qPrintable(out), qPrintable(err));
    return document.object();
}

Till::Till()
{
    setSettings(QString());
}

QProcessEnvironment Till::environment(const QMap<QString, QString> &changes)
{
    QProcessEnvironment result = QProcessEnvironment::systemEnvironment();
    for (const QString &name :
         {u"LC_MESSAGES"_s, u"LANG"_s, u"NO_COLOR"_s, u"LOG4QT_CONFIGURATION"_s})
        result.remove(name);
    result.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    result.insert(u"TERM"_s, u"xterm-256color"_s);
    for (const auto &[name, value] : changes.asKeyValueRange())
        result.insert(name, value);
    return result;
}

CommandResult Till::run(const QStringList &arguments, const QByteArray &input,
                        const QMap<QString, QString> &environment)
{
    QProcess process;
    process.setProcessEnvironment(Till::environment(environment));
    if (obeysFileRights) {
        process.setChildProcessModifier(rig::giveUpFileCapabilities);
    }
    process.start(program(), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(limitMs);
    requireEnd(process, arguments);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

CommandResult Till::runOnTerminal(const QStringList &arguments, const QByteArray &input,
                                  const QMap<QString, QString> &environment)
{
    int master = -1;
    int slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0)
        qFatal("no terminal can be made");
    ::fcntl(master, F_SETFL, O_NONBLOCK);
    if (::write(master, input.constData(), static_cast<std::size_t>(input.size())) != input.size())
        qFatal("the terminal takes no input");

    QProcess process;
    process.setProcessEnvironment(Till::environment(environment));
    process.setChildProcessModifier([slave] {
        for (const int channel : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(slave, channel);
    });
    process.start(program(), arguments);
    QByteArray shown;
    const auto read = [&] {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(master, buffer, sizeof buffer)) > 0)
            shown.append(buffer, count);
    };
    // The terminal has a small buffer; it must be read, or the program would wait for ever.
    while (process.state() != QProcess::NotRunning && !process.waitForFinished(20))
        read();
    read();
    ::close(slave);
    ::close(master);
    requireEnd(process, arguments);
    return {process.exitCode(), QString::fromUtf8(shown).replace(u"\r\n"_s, u"\n"_s), {}};
}

void Till::setSettings(const QString &text)
{
    database.setSettings(u"[queue]\nport = %1\n"_s.arg(port()) + text);
}

QString Till::write(const QString &path, const QByteArray &content)
{
    return database.till().write(path, content);
}

void Till::setLog(const QStringList &lines)
{
    const QString file = write(
        u"/log/queue.log"_s, lines.isEmpty() ? QByteArray() : (lines.join(u'\n') + u'\n').toUtf8());
    write(
        u"/tallocash/cash/queue/config/log4qt.properties"_s,
        u"log4j.rootLogger=INFO, stdout, file\n"
        "log4j.appender.stdout=org.apache.log4j.ConsoleAppender\n"
        "log4j.appender.stdout.layout=org.apache.log4j.PatternLayout\n"
        "log4j.appender.stdout.layout.conversionPattern=%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n\n"
        "log4j.appender.file=org.apache.log4j.FileAppender\n"
        "log4j.appender.file.file=%1\n"
        "log4j.appender.file.appendFile=true\n"
        "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
        "log4j.appender.file.layout.conversionPattern=%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n\n"_s
            .arg(file)
            .toUtf8());
}

void Till::setFailIds(const QByteArray &json)
{
    write(u"/tallocash/cash/queue/ids.json"_s, json);
}

void Till::setAge(int id, int seconds)
{
    database.query(u"UPDATE message SET creationtime = ? WHERE messageid = ?"_s,
                   {QDateTime::currentDateTime().addSecs(-seconds).toString(timeFormat), id});
}

QString logLine(int secondsAgo, const QString &level, const QString &category, const QString &text)
{
    return u"%1,000 %2 [%3] %4"_s.arg(
        QDateTime::currentDateTime().addSecs(-secondsAgo).toString(timeFormat),
        level.leftJustified(5), category, text);
}
