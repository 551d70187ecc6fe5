#include "tools/stand/samplestand.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/typestand.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstdio>

using namespace Qt::StringLiterals;

using stand::UsageError;

namespace {

// Exit codes, which the manual page lists.
constexpr int delivered = 0;
constexpr int notDelivered = 1;
constexpr int wrongUsage = 2;

/// The scenarios that belong to this program: of its package, or of the source tree that it is
/// built from, to which the build folder has a link.
QString ownScenarios()
{
    const QDir folder(QCoreApplication::applicationDirPath());
    for (const QString &path : {u"../share/queue-stand/scenarios"_s, u"stand-scenarios"_s}) {
        if (folder.exists(path))
            return QDir::cleanPath(folder.filePath(path));
    }
    throw UsageError(
        u"There are no scenarios beside %1: name their folder with --scenarios, in the source tree tests/scenarios"_s
            .arg(QCoreApplication::applicationFilePath()));
}

int numberOf(const QCommandLineParser &parser, const QCommandLineOption &option, int least,
             int most)
{
    bool isNumber = false;
    const int number = parser.value(option).toInt(&isNumber);
    if (!isNumber || number < least || number > most)
        throw UsageError(u"--%1: '%2' is not a number from %3 to %4"_s
                             .arg(option.names().first(), parser.value(option))
                             .arg(least)
                             .arg(most));
    return number;
}

struct Options
{
    // clang-format off
    QCommandLineOption root{u"root"_s, u"The folder used as / of the till: QUEUE_ROOT of the service."_s, u"folder"_s};
    QCommandLineOption scenarios{u"scenarios"_s, u"The folder with the scenarios; by default those of the package or of the build."_s, u"folder"_s};
    QCommandLineOption writeSettings{u"write-settings"_s, u"Only write the settings that direct the service to the stand; call before the service starts."_s};
    QCommandLineOption list{u"list"_s, u"Only list the types that have samples."_s};
    QCommandLineOption type{u"type"_s, u"Show only this type; may be repeated."_s, u"type"_s};
    QCommandLineOption verbose{u"verbose"_s, u"Also show headers and bodies."_s};
    QCommandLineOption refuse{u"refuse"_s, u"Failure: connections are refused."_s};
    QCommandLineOption status{u"status"_s, u"Failure: every request is answered with this HTTP status."_s, u"code"_s};
    QCommandLineOption slow{u"slow"_s, u"Failure: answers come this much later."_s, u"seconds"_s};
    QCommandLineOption close{u"close"_s, u"Failure: connections end without an answer."_s};
    QCommandLineOption failing{u"failing"_s, u"Only the services of this type fail; may be repeated."_s, u"type"_s};
    QCommandLineOption lasting{u"for"_s, u"How long the failure lasts, 10 by default; then everything is delivered."_s, u"seconds"_s, u"10"_s};
    QCommandLineOption port{u"port"_s, u"Play the service of one --type on this port of 127.0.0.1, for rows of your own."_s, u"port"_s};
    QCommandLineOption state{u"state"_s, u"With --port: the state that the service reports, such as DECLINED or refundStatus=DECLINED."_s, u"state"_s};
    QCommandLineOption answer{u"answer"_s, u"With --port: the body of every answer."_s, u"file"_s};
    // clang-format on

    std::optional<rig::Failure> failure(const QCommandLineParser &parser) const;
    stand::TypeOptions play(const QCommandLineParser &parser) const;
    stand::ShowOptions show(const QCommandLineParser &parser) const;
};

std::optional<rig::Failure> Options::failure(const QCommandLineParser &parser) const
{
    using rig::Failure;
    QList<Failure> failures;
    if (parser.isSet(refuse))
        failures.append({.kind = Failure::Kind::Refuse});
    if (parser.isSet(status))
        failures.append(
            {.kind = Failure::Kind::Status, .status = numberOf(parser, status, 200, 599)});
    if (parser.isSet(slow))
        failures.append(
            {.kind = Failure::Kind::Slow, .seconds = double(numberOf(parser, slow, 1, 3600))});
    if (parser.isSet(close))
        failures.append({.kind = Failure::Kind::Close});
    if (failures.size() > 1)
        throw UsageError(
            u"Only one failure can be played: --refuse, --status, --slow or --close"_s);
    return failures.isEmpty() ? std::nullopt : std::optional(failures.first());
}

stand::ShowOptions Options::show(const QCommandLineParser &parser) const
{
    for (const QCommandLineOption &option : {state, answer}) {
        if (parser.isSet(option))
            throw UsageError(u"--%1 needs --port"_s.arg(option.names().first()));
    }
    const std::optional<rig::Failure> chosen = failure(parser);
    if (!chosen && (parser.isSet(failing) || parser.isSet(lasting)))
        throw UsageError(u"--failing and --for need --refuse, --status, --slow or --close"_s);

    stand::ShowOptions result;
    result.types = parser.values(type);
    result.isVerbose = parser.isSet(verbose);
    result.failingTypes = parser.values(failing);
    result.failure = chosen;
    result.failingSeconds = numberOf(parser, lasting, 1, 86400);
    return result;
}

stand::TypeOptions Options::play(const QCommandLineParser &parser) const
{
    for (const QCommandLineOption &option : {root, writeSettings, failing}) {
        if (parser.isSet(option))
            throw UsageError(u"--%1 cannot be used with --port"_s.arg(option.names().first()));
    }
    const QStringList types = parser.values(type);
    if (types.size() != 1)
        throw UsageError(u"--port needs exactly one --type"_s);
    stand::TypeOptions result;
    result.type = types.first();
    result.port = static_cast<quint16>(numberOf(parser, port, 1, 65535));
    result.state = parser.value(state);
    if (parser.isSet(answer)) {
        QFile file(parser.value(answer));
        if (!file.open(QIODevice::ReadOnly))
            throw UsageError(u"%1: %2"_s.arg(file.fileName(), file.errorString()));
        result.answer = file.readAll();
    }
    result.failure = failure(parser);
    if (result.failure && result.failure->kind == rig::Failure::Kind::Status
        && !parser.isSet(lasting)) {
        // A status without a time is an ordinary answer, which may have a body.
        result.status = result.failure->status;
        result.failure.reset();
    }
    if (parser.isSet(lasting)) {
        if (!result.failure)
            throw UsageError(u"--for needs --refuse, --status, --slow or --close"_s);
        result.failingSeconds = numberOf(parser, lasting, 1, 86400);
    }
    return result;
}

int work(const QCommandLineParser &parser, const Options &options)
{
    if (!parser.positionalArguments().isEmpty())
        throw UsageError(u"Unexpected: "_s + parser.positionalArguments().first());
    const QString scenarios =
        parser.isSet(options.scenarios) ? parser.value(options.scenarios) : ownScenarios();
    if (parser.isSet(options.list)) {
        std::puts(qPrintable(stand::SampleStand::list(scenarios).join(u'\n')));
        return delivered;
    }
    if (parser.isSet(options.port)) {
        stand::TypeStand stand(scenarios, options.play(parser));
        stand.start();
        return QCoreApplication::exec();
    }
    if (!parser.isSet(options.root))
        throw UsageError(u"--root or --port is missing"_s);
    stand::SampleStand stand(parser.value(options.root), scenarios, options.show(parser));
    if (parser.isSet(options.writeSettings)) {
        stand.writeSettings();
        return delivered;
    }
    return stand.run() ? delivered : notDelivered;
}

} // namespace

/// Plays the outside services for a running service and shows its sample messages being delivered.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"queue-stand"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(QUEUE_VERSION));
    const Options options;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Puts sample messages into the queue, plays the outside services and shows the deliveries."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({options.root, options.scenarios, options.writeSettings, options.list,
                       options.type, options.verbose, options.refuse, options.status, options.slow,
                       options.close, options.failing, options.lasting, options.port, options.state,
                       options.answer});
    if (!parser.parse(application.arguments())) {
        std::fputs(qPrintable(parser.errorText() + u'\n'), stderr);
        return wrongUsage;
    }
    if (parser.isSet(u"help"_s))
        parser.showHelp(delivered);
    if (parser.isSet(u"version"_s))
        parser.showVersion();
    try {
        return work(parser, options);
    } catch (const UsageError &error) {
        std::fputs(qPrintable(error.text() + u'\n'), stderr);
        return wrongUsage;
    } catch (const rig::Error &error) {
        std::fputs(qPrintable(error.text() + u'\n'), stderr);
        return notDelivered;
    }
}
