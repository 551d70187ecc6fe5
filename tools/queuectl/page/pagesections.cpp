#include "tools/queuectl/page/pagesections.h"

#include "tools/queuectl/page/charts.h"
#include "tools/queuectl/report.h"
#include "tools/queuectl/shaperecord.h"
#include "tools/queuectl/text.h"

#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

// Heights of lanes in pixels.
constexpr int deliveredHeight = 96;
constexpr int failedHeight = 48;
constexpr int droppedHeight = 32;
constexpr int sparkDelivered = 18;
constexpr int sparkFailed = 9;
constexpr int sparkDropped = 5;

/// A column of a table: its title, and a class of the page's style for its cells.
struct Head
{
    QString title;
    const char *kind = "words";
};

/// On a narrow screen each row becomes a card, whose cells have their titles before them.
void openTable(Html &html, const QList<Head> &heads, const QString &style = u"cards"_s)
{
    html.open("table", {{"class", style}});
    html.open("thead");
    html.open("tr");
    for (const Head &head : heads)
        html.element("th", head.title,
                     {{"scope", u"col"_s}, {"class", QString::fromLatin1(head.kind)}});
    html.close(2);
    html.open("tbody");
}

void openCell(Html &html, const Head &head)
{
    html.open("td", {{"class", QString::fromLatin1(head.kind)}, {"data-label", head.title}});
}

void writeCell(Html &html, const Head &head, const QString &text)
{
    openCell(html, head);
    html.text(text);
    html.close();
}

void writeOutside(Html &html, const Head &head, const QString &outside)
{
    openCell(html, head);
    html.outside(outside);
    html.close();
}

/// The first cell of a row; the caller closes it.
void openRow(Html &html, const QString &name)
{
    html.open("tr");
    html.open("th", {{"scope", u"row"_s}});
    html.outside(name);
}

void writeNote(Html &html, const QString &note, const char *tone)
{
    html.open("div", {{"class", u"note "_s + QString::fromLatin1(tone)}});
    html.text(note);
    html.close();
}

QString countsText(int delivered, int failed, int dropped)
{
    return text("delivered: %1, first attempt failed: %2, dropped: %3",
                "доставлено: %1, не с первой попытки: %2, снято с доставки: %3")
        .arg(numberText(delivered), numberText(failed), numberText(dropped));
}

QString deliveredTitle()
{
    return text("Delivered", "Доставлено");
}

QString failedTitle()
{
    return text("First attempt failed", "Не с первой попытки");
}

QString droppedTitle()
{
    return text("Dropped", "Снято с доставки");
}

void writeFlowChart(Html &html, const PageValues &page)
{
    const Flow &flow = page.flow;
    const QString counts =
        countsText(totalOf(flow.delivered), totalOf(flow.failed), totalOf(flow.dropped));
    writeColumns(html,
                 {text("Messages over time", "Сообщения по времени"),
                  text("From %1 to %2: %3. The same figures are in the table below the chart.",
                       "С %1 по %2: %3. Те же числа в таблице под диаграммой.")
                      .arg(page.scale.begin().toString(pageTimeForm),
                           page.scale.end().toString(pageTimeForm), counts)},
                 page.scale,
                 {{deliveredTitle(), "good", flow.delivered, deliveredHeight},
                  {failedTitle(), "careful", flow.failed, failedHeight},
                  {droppedTitle(), "bad", flow.dropped, droppedHeight}});
}

void writeFlowFigures(Html &html, const PageValues &page)
{
    const Head time{text("From", "С"), "time"};
    const QList<Head> heads{
        time, {deliveredTitle(), "number"}, {failedTitle(), "number"}, {droppedTitle(), "number"}};
    html.open("details");
    html.element("summary", text("The chart as a table", "Диаграмма в виде таблицы"));
    openTable(html, heads);
    for (int part = 0; part < page.scale.count(); ++part) {
        const QList<int> counts{page.flow.delivered[part], page.flow.failed[part],
                                page.flow.dropped[part]};
        if (totalOf(counts) == 0)
            continue;
        html.open("tr");
        html.element("th", page.scale.edge(part).toString(pageTimeForm), {{"scope", u"row"_s}});
        for (int column = 0; column < counts.size(); ++column)
            writeCell(html, heads[column + 1], numberText(counts[column]));
        html.close();
    }
    html.close(2);
    writeSentence(html, text("Times in which nothing happened are left out.",
                             "Промежутки, в которые ничего не было, пропущены."));
    html.close();
}

void writeTypes(Html &html, const PageValues &page)
{
    const Head overTime{text("Over time", "По времени"), "picture"};
    const Head delivered{deliveredTitle(), "number"};
    const Head failed{failedTitle(), "number"};
    const Head dropped{droppedTitle(), "number"};
    html.element("h3", text("By type", "По типам"));
    writeSentence(html,
                  text("From top to bottom: delivered, first attempt failed, dropped. The "
                       "highest column of each is as high as its line.",
                       "Сверху вниз: доставлено, не с первой попытки, снято с доставки. Самый "
                       "высокий столбец занимает всю высоту своей строки."));
    openTable(html, {{text("Type", "Тип")}, overTime, delivered, failed, dropped});
    for (const TypeFlow &type : page.types) {
        openRow(html, type.type);
        const QString address = page.addresses.value(type.type);
        if (!address.isEmpty())
            writeNote(html, address, "faint");
        if (type.failingSince.isValid())
            writeNote(html,
                      text("failing for %1", "отказы %1")
                          .arg(durationText(type.failingSince.secsTo(page.scale.end()))),
                      "bad");
        html.close();
        openCell(html, {{}, overTime.kind});
        writeSparkline(html, {type.type, countsText(type.delivered, type.failed, type.dropped)},
                       page.scale,
                       {{{}, "good", type.flow.delivered, sparkDelivered},
                        {{}, "careful", type.flow.failed, sparkFailed},
                        {{}, "bad", type.flow.dropped, sparkDropped}});
        html.close();
        writeCell(html, delivered, numberText(type.delivered));
        writeCell(html, failed, numberText(type.failed));
        writeCell(html, dropped, numberText(type.dropped));
        html.close();
    }
    html.close(2);
    writeFurther(html, page.furtherTypes);
}

const char *barClass(Cause cause)
{
    switch (cause) {
    case Cause::Turn:
        return "plain";
    case Cause::Unknown:
        return "careful";
    default:
        return "bad";
    }
}

QString agesText(const WaitingCause &cause)
{
    QStringList parts;
    for (int age = 0; age < cause.ages.size(); ++age)
        parts.append(text(ageClasses()[age].english, ageClasses()[age].russian) + u": "_s
                     + numberText(cause.ages[age]));
    return parts.join(u", "_s);
}

void writeCauses(Html &html, const PageValues &page)
{
    int highest = 0;
    for (const WaitingCause &cause : page.waitingCauses)
        highest = std::max(highest, *std::max_element(cause.ages.cbegin(), cause.ages.cend()));
    const Head byAge{text("By age", "По возрасту"), "small"};
    const Head all{text("All", "Всего"), "number"};
    QList<Head> heads{{text("Cause", "Причина")}, byAge};
    for (const AgeClass &age : ageClasses())
        heads.append({text(age.english, age.russian), "number"});
    heads.append(all);
    openTable(html, heads, u"cards ages"_s);
    for (const WaitingCause &cause : page.waitingCauses) {
        openRow(html, causeText(cause.cause));
        html.close();
        openCell(html, {{}, byAge.kind});
        writeBars(html, {causeText(cause.cause), agesText(cause)}, barClass(cause.cause),
                  cause.ages, highest);
        html.close();
        for (int age = 0; age < cause.ages.size(); ++age)
            writeCell(html, heads[age + 2], numberText(cause.ages[age]));
        writeCell(html, all, numberText(cause.total));
        html.close();
    }
    html.close(2);
}

void writeWaitingTypes(Html &html, const PageValues &page)
{
    const Head cause{text("Cause", "Причина")};
    const Head rows{text("Rows", "Строк"), "number"};
    const Head oldest{text("Oldest", "Старшей"), "number"};
    html.element("h3", text("By type", "По типам"));
    openTable(html, {{text("Type", "Тип")}, cause, rows, oldest});
    for (const WaitingType &type : page.waitingTypes) {
        openRow(html, type.type);
        html.close();
        writeCell(html, cause, causeText(type.cause));
        writeCell(html, rows, numberText(type.count));
        writeCell(html, oldest, durationText(type.oldestSeconds));
        html.close();
    }
    html.close(2);
    writeFurther(html, page.furtherWaitingTypes);
}

void writeDestinationsNow(Html &html, const PageValues &page)
{
    const Head state{text("Now", "Сейчас")};
    const Head rows{text("Rows", "Строк"), "number"};
    const Head oldest{text("Oldest", "Старшей"), "number"};
    const Head types{text("Types", "Типы"), "spread"};
    openTable(html, {{text("Destination", "Адресат")}, state, rows, oldest, types});
    for (const ShapeDestination &destination : page.destinations) {
        openRow(html, destination.address.isEmpty()
                          ? text("no address in the row", "в строке нет адреса")
                          : destination.address);
        html.close();
        writeCell(html, state, stateText(destination));
        writeCell(html, rows, numberText(destination.count));
        writeCell(html, oldest, durationText(destination.oldestSeconds));
        writeOutside(html, types, destination.types.join(u", "_s));
        html.close();
    }
    html.close(2);
    writeFurther(html, page.furtherDestinations);
}

/// The outages of each type as a line.
QList<Line> outageLines(const PageValues &page)
{
    QMap<QString, QList<Outage>> types;
    for (const Outage &outage : page.outages)
        types[outage.type].append(outage);
    constexpr qsizetype shownLetters = 24;
    QList<Line> lines;
    for (const auto &[type, outages] : types.asKeyValueRange()) {
        Line line{shortened(type, shownLetters), {}, "bad", {}};
        qint64 seconds = 0;
        for (const Outage &outage : outages) {
            seconds += outage.seconds();
            line.stretches.append({outage.begin, outage.end});
        }
        line.right = outages.last().isOngoing
                         ? text("%1, still away", "%1, ещё не работает").arg(durationText(seconds))
                         : durationText(seconds);
        lines.append(line);
    }
    return lines;
}

void writeOutageList(Html &html, const PageValues &page)
{
    const Head address{text("Destination", "Адресат"), "spread"};
    const Head from{text("From", "С"), "time"};
    const Head to{text("To", "До"), "time"};
    const Head lasted{text("Lasted", "Длилось"), "number"};
    const Head messages{text("Messages", "Сообщений"), "number"};
    openTable(html, {{text("Type", "Тип")}, address, from, to, lasted, messages});
    for (const Outage &outage : page.outages) {
        openRow(html, outage.type);
        html.close();
        const QString known = page.addresses.value(outage.type);
        writeOutside(html, address, known.isEmpty() ? u"–"_s : known);
        writeCell(html, from, outage.begin.toString(pageTimeForm));
        writeCell(html, to,
                  outage.isOngoing ? text("still", "ещё длится")
                                   : outage.end.toString(pageTimeForm));
        writeCell(html, lasted, durationText(outage.seconds()));
        writeCell(html, messages, numberText(outage.messages));
        html.close();
    }
    html.close(2);
}

void writeOutages(Html &html, const PageValues &page)
{
    html.element("h3", text("When they were away", "Когда они не работали"));
    if (!page.journalFault.isEmpty())
        return writeSentence(html, page.journalFault);
    if (page.outages.isEmpty())
        return writeSentence(
            html, text("Each one was there all the time.", "Все работали без перерывов."));
    writeSentence(html, text("From the first attempt that failed to the next delivery of the type. "
                             "What lasted less than a minute is left out.",
                             "От первой неудачной попытки до следующей доставки этого типа. Короче "
                             "минуты не показано."));
    QStringList words;
    const QList<Line> lines = outageLines(page);
    for (const Line &line : lines)
        words.append(line.left + u": "_s + line.right);
    writeLines(html,
               {text("Times without delivery by type", "Время без доставки по типам"),
                words.join(u"; "_s)},
               page.scale, lines);
    writeOutageList(html, page);
    writeFurther(html, page.furtherOutages);
}

} // namespace

void openSection(Html &html, const QString &title)
{
    html.open("section");
    html.element("h2", title);
}

void writeSentence(Html &html, const QString &sentence, const char *tone)
{
    html.open("p", {{"class", QString::fromLatin1(tone)}});
    html.text(sentence);
    html.close();
}

void writeFurther(Html &html, int count)
{
    if (count > 0)
        writeSentence(html,
                      text("Not shown: %1 more.", "Не показано ещё: %1.").arg(numberText(count)));
}

void writeFlow(Html &html, const PageValues &page)
{
    openSection(html, text("Deliveries and failures", "Доставка и отказы"));
    if (!page.journalFault.isEmpty()) {
        writeSentence(html, page.journalFault);
    } else if (page.types.isEmpty()) {
        writeSentence(html,
                      text("Nothing was tried in this time.", "За это время попыток не было."));
    } else {
        writeSentence(html, text("One column is %1.", "Один столбец — %1.")
                                .arg(durationText(page.scale.partSeconds())));
        writeFlowChart(html, page);
        writeFlowFigures(html, page);
        writeTypes(html, page);
    }
    html.close();
}

void writeWaiting(Html &html, const PageValues &page)
{
    openSection(html, text("What waits", "Что ждёт"));
    if (!page.databaseFault.isEmpty()) {
        writeSentence(html, page.databaseFault);
    } else if (page.waiting == 0) {
        writeSentence(html, text("Nothing waits.", "Очередь пуста."));
    } else {
        writeCauses(html, page);
        writeWaitingTypes(html, page);
    }
    html.close();
}

void writeDestinations(Html &html, const PageValues &page)
{
    openSection(html, text("Destinations", "Адресаты"));
    if (page.destinations.isEmpty())
        writeSentence(html, text("No rows wait for a destination.", "Строк, которые ждут, нет."));
    else
        writeDestinationsNow(html, page);
    writeOutages(html, page);
    html.close();
}

void writeDropped(Html &html, const PageValues &page)
{
    openSection(html, droppedTitle());
    if (!page.journalFault.isEmpty()) {
        writeSentence(html, page.journalFault);
    } else if (page.dropped.isEmpty()) {
        writeSentence(html, text("Nothing was dropped.", "Ничего не снято с доставки."));
    } else {
        const Head time{text("When", "Когда"), "time"};
        const Head id{text("Id", "Номер"), "number"};
        const Head reference{text("Reference", "Документ")};
        const Head attempts{text("Attempts", "Попыток"), "number"};
        const Head answer{text("Answer", "Ответ"), "spread"};
        openTable(html, {{text("Type", "Тип")}, time, id, reference, attempts, answer});
        for (const DroppedMessage &message : page.dropped) {
            openRow(html, message.type);
            html.close();
            writeCell(html, time, message.time.toString(pageTimeForm));
            writeCell(html, id, QString::number(message.id));
            writeOutside(html, reference, message.reference);
            writeCell(html, attempts, numberText(message.attempts));
            openCell(html, answer);
            html.text(causeText(message.cause));
            if (!message.answer.isEmpty()) {
                html.text(u": "_s);
                html.outside(message.answer);
            }
            html.close(2);
        }
        html.close(2);
        writeFurther(html, page.furtherDropped);
    }
    html.close();
}

} // namespace queuectl
