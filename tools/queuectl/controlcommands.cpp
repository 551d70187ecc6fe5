#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The row of the type that was refused last and still waits.
std::optional<int> refusedRow(const QString &type)
{
    const std::optional<JournalEntry> kept = JournalFile().lastKept(type);
    if (!kept)
        return {};
    try {
        const std::optional<Row> row = MessageRows().find(kept->id);
        return row && row->type == type ? std::optional(row->id) : std::nullopt;
    } catch (const BasicException &) {
        return {};
    }
}

} // namespace

Report startWorker(const Call &call)
{
    const QString type = call.arguments.first();
    requireDelivered(type);
    const std::optional<int> refused = refusedRow(type);
    const StartAnswer answer = askStart(type, call.arguments.value(1));
    if (answer.state == StartAnswer::State::NoAnswer)
        throw noService();
    const bool wasRunning = answer.state == StartAnswer::State::WasRunning;
    const bool isStarted = answer.state == StartAnswer::State::Started;

    Report report;
    report.data = {{u"type"_s, type},
                   {u"started"_s, isStarted},
                   {u"wasRunning"_s, wasRunning},
                   {u"answer"_s, answer.text}};
    if (isStarted)
        report.line(
            text("The worker of type %1 is started.", "Обработчик типа %1 запущен.").arg(type));
    else if (wasRunning)
        report.line(
            text("The worker of type %1 is running already.", "Обработчик типа %1 уже работает.")
                .arg(type));
    else
        report.line(
            text("The service did not start the worker: %1", "Служба не запустила обработчик: %1")
                .arg(answer.text),
            Tone::Bad);
    // The service begins after the row that it was refused last.
    if (isStarted && refused)
        report.line(text("Row %1 was refused before: a start may pass it over, the next one does "
                         "not. To have everything tried: queuectl settle --type %2",
                         "Строке %1 уже отказано: запуск может пройти мимо неё, следующий — нет. "
                         "Попробовать всё: queuectl settle --type %2")
                        .arg(QString::number(*refused), type));
    report.exitCode = isStarted || wasRunning ? Done : Found;
    return report;
}

Report showErrors(const Call &call)
{
    const int count = requireService({u"db_errors_count"_s}).value(u"errorsCount"_s).toInt();
    const bool isReset = call.has(u"reset"_s);
    if (isReset)
        requireService({u"db_reset_errors"_s});
    Report report;
    report.data = {{u"errorsCount"_s, count}, {u"reset"_s, isReset}};
    report.line(text("Database errors since the start or the last reset: %1",
                     "Ошибок базы данных с запуска или последнего сброса: %1")
                    .arg(count),
                count == 0 ? Tone::Good : Tone::Bad);
    if (isReset)
        report.line(text("The count is 0 again.", "Счётчик обнулён."));
    return report;
}

} // namespace queuectl
