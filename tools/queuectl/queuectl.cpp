#include "tools/queuectl/queuectl.h"

#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/paths.h"
#include "shared/text/escaping.h"
#include "tools/queuectl/checkcommand.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"

#include <log4qt/helpers/properties.h>
#include <log4qt/logmanager.h>
#include <log4qt/propertyconfigurator.h>

#include <QCommandLineParser>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const Command *findCommand(const QString &name)
{
    const QList<Command> &table = commandTable();
    const auto found = std::find_if(table.cbegin(), table.cend(), [&name](const Command &command) {
        return command.name == name;
    });
    return found == table.cend() ? nullptr : &*found;
}

QStringList commandNames()
{
    QStringList names;
    for (const Command &command : commandTable())
        names.append(command.name);
    return names;
}

QString optionLines(const QList<Option> &options)
{
    QString lines;
    for (const Option &option : options) {
        const QString left =
            u"--"_s + option.name + (option.value.isEmpty() ? QString() : u' ' + option.value);
        lines += u"  %1  %2\n"_s.arg(left.leftJustified(20), text(option.english, option.russian));
    }
    return lines;
}

/// Log lines of the shared classes would mix with the output; `doctor` reports what they found.
void silenceLog()
{
    Log4Qt::Properties properties;
    properties.setProperty(u"log4j.rootLogger"_s, u"ERROR, nowhere"_s);
    properties.setProperty(u"log4j.appender.nowhere"_s, u"org.apache.log4j.NullAppender"_s);
    Log4Qt::PropertyConfigurator::configure(properties);
}

Call readCall(const Command &command, const QStringList &words)
{
    QCommandLineParser parser;
    const QList<Option> options = command.options + commonOptions();
    for (const Option &option : options)
        parser.addOption(QCommandLineOption(option.name, QString(), option.value));
    // The parser takes the first word for the name of the program.
    if (!parser.parse(QStringList{command.name} + words)) {
        const QStringList unknown = parser.unknownOptionNames();
        const QString reason =
            unknown.isEmpty()
                ? text("an option has no value", "у ключа нет значения")
                : text("there is no option --%1", "нет ключа --%1").arg(unknown.first());
        throw Failure(Usage, u"%1 (queuectl %2 --help)"_s.arg(reason, command.name));
    }
    Call call;
    call.arguments = parser.positionalArguments();
    for (const Option &option : options) {
        if (!parser.isSet(option.name))
            continue;
        call.options.insert(option.name,
                            option.value.isEmpty() ? QString() : parser.value(option.name));
        if (!option.value.isEmpty())
            call.lists.insert(option.name, parser.values(option.name));
    }
    call.isJson = call.has(u"json"_s);
    const bool isRightCount = call.arguments.size() >= command.minimumArguments
                              && call.arguments.size() <= command.maximumArguments;
    if (!isRightCount && !call.has(u"help"_s))
        throw Failure(Usage,
                      text("Usage: %1", "Вызов: %1")
                          .arg(u"queuectl %1 %2"_s.arg(command.name, command.arguments).trimmed()));
    return call;
}

ExitCode execute(const QStringList &commandLine)
{
    const Command *command = findCommand(commandLine.first());
    if (!command) {
        const QString meant = nearest(commandLine.first(), commandNames());
        throw Failure(
            Usage, text("There is no command '%1'%2 (queuectl --help)",
                        "Нет команды '%1'%2 (queuectl --help)")
                       .arg(commandLine.first(),
                            meant.isEmpty()
                                ? QString()
                                : text("; did you mean %1?", "; имелась в виду %1?").arg(meant)));
    }
    const Call call = readCall(*command, commandLine.mid(1));
    if (call.has(u"help"_s)) {
        print(helpText(command->name));
        return Done;
    }
    const Report report = command->run(call);
    if (!report.isPrinted) {
        if (call.isJson)
            print(report.toJson());
        else
            print(report.toText(hasColours()));
    }
    return report.exitCode;
}

} // namespace

int run(const QStringList &commandLine)
{
    silenceLog();
    Config::setConfigsPathList(settingsFolders(), {});
    // A command that only looks changes nothing; the service creates missing tables.
    ConnectionFactory::setCreatesTables(false);
    const bool isJson = commandLine.contains(u"--json"_s);
    // `--json` may also come before the command.
    QStringList words = commandLine;
    while (!words.isEmpty() && words.first() == u"--json")
        words.append(words.takeFirst());
    const QString first = words.value(0);
    try {
        if (first == u"--version") {
            print(u"queuectl %1\n"_s.arg(QStringLiteral(QUEUE_VERSION)));
            return Done;
        }
        if (first == u"--help" || first == u"-h" || first == u"help") {
            print(helpText(words.value(1)));
            return Done;
        }
        if (first.isEmpty() || first.startsWith(u'-')) {
            printError(helpText().trimmed());
            return Usage;
        }
        return execute(words);
    } catch (const Failure &failure) {
        // A monitoring server reads the sentence on standard output, and takes exit code 2 for an
        // alarm.
        if (first == u"check" && !isJson) {
            print(checkLine(CheckState::Unknown, failure.tr().ru()) + u'\n');
            return static_cast<int>(CheckState::Unknown);
        }
        if (isJson) {
            const QJsonObject error{{u"exitCode"_s, failure.exitCode()},
                                    {u"text"_s, failure.tr().ru()}};
            const QByteArray line = jsonAnswer({{u"error"_s, error}}, JsonForm::Line);
            printError(QString::fromUtf8(line).trimmed());
        } else {
            printError(escaping::escaped(failure.tr().ru()));
        }
        return failure.exitCode();
    }
}

QString helpText(const QString &command)
{
    const Command *one = findCommand(command);
    if (one) {
        return u"%1\n\n  %2\n\n%3\n%4\n%5\n  %6\n"_s.arg(
            text("Usage: %1", "Вызов: %1")
                .arg(u"queuectl %1 %2"_s.arg(one->name, one->arguments).trimmed()
                     + text(" [OPTIONS]", " [КЛЮЧИ]")),
            text(one->english, one->russian), text("Options:", "Ключи:"),
            optionLines(one->options + commonOptions()), text("Example:", "Пример:"), one->example);
    }
    QString lines;
    for (const Command &each : commandTable())
        lines += u"  %1  %2\n"_s.arg(
            u"%1 %2"_s.arg(each.name, each.arguments).trimmed().leftJustified(18),
            text(each.english, each.russian));
    return text("Shows the queue of a till and carries out what the engineer decides.\n\n"
                "Usage: queuectl COMMAND [ARGUMENTS] [OPTIONS]\n\nCommands:\n",
                "Показывает очередь кассы и выполняет решения инженера.\n\n"
                "Вызов: queuectl КОМАНДА [АРГУМЕНТЫ] [КЛЮЧИ]\n\nКоманды:\n")
           + lines + u'\n' + text("Options of every command:\n", "Ключи всех команд:\n")
           + optionLines(commonOptions())
           + text("\nExit codes: 0 done, 1 something is wrong, 2 wrong usage, 3 not found, "
                  "4 no database,\n5 service does not answer, 6 not confirmed, 7 failed.\n",
                  "\nКоды выхода: 0 сделано, 1 найдены замечания, 2 неверный вызов, 3 не найдено, "
                  "4 нет базы данных,\n5 служба не отвечает, 6 не подтверждено, 7 сбой.\n");
}

} // namespace queuectl
