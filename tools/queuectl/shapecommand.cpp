#include "tools/queuectl/command.h"
#include "tools/queuectl/shaperecord.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/todaytable.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

Tone destinationTone(Cause cause)
{
    switch (cause) {
    case Cause::Turn:
        return Tone::Plain;
    case Cause::Unknown:
        return Tone::Careful;
    default:
        return Tone::Bad;
    }
}

} // namespace

Report showShape(const Call & /*call*/)
{
    const Situation situation = Situation::read();
    MessageRows rows;
    const Shape shape = collectShape(rows, situation);

    Report report;
    report.data = shapeRecord(shape);
    for (const ShapeDestination &destination : shape.destinations)
        report.line(destinationText(destination), destinationTone(destination.cause));
    if (shape.total == 0) {
        report.line(text("Nothing waits.", "Очередь пуста."), Tone::Good);
    } else {
        report.line(QString());
        report.table(u"rows"_s,
                     {{u"type"_s, text("Type", "Тип")},
                      {u"ageText"_s, text("Age", "Ждёт")},
                      {u"causeText"_s, text("Cause", "Причина")},
                      {u"rows"_s, text("Rows", "Строк"), Format::Plain, true},
                      {u"oldestAgeSeconds"_s, text("Oldest", "Старшей"), Format::Duration, true}});
    }
    addToday(report, situation);
    return report;
}

} // namespace queuectl
