#include "rig/serviceprocess.h"

#include "rig/controlport.h"
#include "rig/error.h"
#include "rig/till.h"

#include <QFile>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// Everything goes to standard output, because tests wait for a worker's end, a debug line.
/// Log4Qt's own messages are switched off.
constexpr auto loggingProperties = "log4j.Debug=OFF\n"
                                   "log4j.logger.\\:\\:LoggerRepository=OFF\n"
                                   "log4j.rootLogger=DEBUG, console\n"
                                   "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
                                   "log4j.appender.console.target=STDOUT_TARGET\n"
                                   "log4j.appender.console.layout=org.apache.log4j.PatternLayout\n"
                                   "log4j.appender.console.layout.ConversionPattern="
                                   "%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n\n";

void writeLoggingProperties(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(loggingProperties) < 0)
        throw Error(u"%1: %2"_s.arg(path, file.errorString()));
}

} // namespace

ServiceProcess::ServiceProcess(const QString &program, const Till &till,
                               const QMap<QString, QString> &ownEnvironment, Log log)
    : ChildProcess(program)
    , logFile_(till.path(u"/service.log"_s))
    , port(till.controlPort())
{
    for (const QString &name :
         {u"http_proxy"_s, u"https_proxy"_s, u"HTTP_PROXY"_s, u"HTTPS_PROXY"_s, u"ALL_PROXY"_s,
          u"all_proxy"_s, u"NOTIFY_SOCKET"_s, u"LOG4QT_CONFIGURATION"_s})
        environment.remove(name);
    setVariable(u"QUEUE_ROOT"_s, till.root());
    setVariable(u"TMPDIR"_s, till.path(u"/tmp"_s));
    setVariable(u"LC_ALL"_s, u"C.UTF-8"_s);
    setVariable(u"QT_FORCE_STDERR_LOGGING"_s, u"1"_s);
    process.setWorkingDirectory(till.root());
    if (log == Log::Records) {
        const QString properties = till.path(u"/log4qt.properties"_s);
        writeLoggingProperties(properties);
        setVariable(u"LOG4QT_CONFIGURATION"_s, properties);
        QObject::connect(&process, &QProcess::readyReadStandardOutput, &process,
                         [this] { log_.take(process.readAllStandardOutput()); });
        QObject::connect(&process, &QProcess::readyReadStandardError, &process,
                         [this] { errorBytes += process.readAllStandardError(); });
    } else {
        setOutputFile(logFile_);
    }
    for (const auto &[name, value] : ownEnvironment.asKeyValueRange())
        setVariable(name, value);
}

void ServiceProcess::start()
{
    log_.beginRun();
    ChildProcess::start();
}

QString ServiceProcess::endFault() const
{
    if (process.exitStatus() == QProcess::CrashExit)
        return u"the service ended by signal %1"_s.arg(process.exitCode());
    if (process.exitCode() != 0)
        return u"the service ended with exit code %1"_s.arg(process.exitCode());
    return {};
}

QJsonObject ServiceProcess::ask(const QString &path, std::chrono::milliseconds limit) const
{
    return QJsonDocument::fromJson(askControl(port, path.toUtf8(), limit)).object();
}

QString ServiceProcess::errors() const
{
    QByteArrayList lines = errorBytes.split('\n');
    lines.removeIf(ServiceLog::isOfTheLibrary);
    return QString::fromUtf8(lines.join('\n'));
}

QByteArray ServiceProcess::output() const
{
    QFile file(logFile_);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(u"%1: %2"_s.arg(logFile_, file.errorString()));
    return file.readAll();
}

} // namespace rig
