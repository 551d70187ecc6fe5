#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include "handlers/handlertable.h"

using namespace Qt::StringLiterals;

namespace queuectl {

const QList<Command> &commandTable()
{
    static const Option yes{u"yes"_s, {}, "do not ask", "не спрашивать"};
    // clang-format off
    static const QList<Command> table = {
        {u"status"_s, {}, 0, 0, {},
         "what waits, by type; the state of database and service",
         "что ждёт, по типам, и состояние базы и службы",
         u"queuectl status"_s, showStatus},
        {u"watch"_s, {}, 0, 0,
         {{u"interval"_s, u"SECONDS"_s, "time between two looks, 2 by default", "время между обновлениями, по умолчанию 2"},
          {u"count"_s, u"N"_s, "end after N looks", "закончить после N обновлений"}},
         "a screen with a line for each type, what changes is marked; q ends it. With --json a line for each look",
         "экран со строкой на каждый тип, изменения отмечены; q — выход. С --json по строке на каждое обновление",
         u"queuectl watch --interval 10"_s, watchStatus},
        {u"list"_s, u"[TYPE]"_s, 0, 1,
         {{u"limit"_s, u"N"_s, "rows to show, 50 by default", "сколько строк показать, по умолчанию 50"},
          {u"after"_s, u"ID"_s, "begin after this row", "начать после этой строки"},
          {u"card"_s, u"CARD"_s, "only rows of this card", "только строки этой карты"},
          {u"older"_s, u"SPAN"_s, "only rows that have waited longer: 15m, 2h, 7d; TYPE may be left out", "только строки, которые ждут дольше: 15m, 2h, 7d; TYPE можно не указывать"}},
         "the rows of a type, with --older of all types, oldest first",
         "строки одного типа, с --older — всех типов, начиная со старшей",
         u"queuectl list cardlab --after 1200"_s, listRows},
        {u"show"_s, u"ID"_s, 1, 1,
         {{u"secrets"_s, {}, "also show passwords and tokens", "показать также пароли и ключи"}},
         "one row with its body",
         "одна строка с телом",
         u"queuectl show 1207"_s, showRow},
        {u"why"_s, u"ID"_s, 1, 1, {},
         "why a row waits, when it is tried next and who must act; for a deleted row, what became of it",
         "почему строка ждёт, когда следующая попытка и кто должен действовать; если строки уже нет — что с ней стало",
         u"queuectl why 1207"_s, explainRow},
        {u"shape"_s, {}, 0, 0, {},
         "what the queue consists of: destinations, types, ages, causes",
         "из чего состоит очередь: адресаты, типы, возраст, причины",
         u"queuectl shape"_s, showShape},
        {u"history"_s, u"[ID]"_s, 0, 1,
         {{u"type"_s, u"TYPE"_s, "only messages of this type", "только сообщения этого типа"},
          {u"card"_s, u"CARD"_s, "only of this card; its last four digits are enough", "только этой карты; достаточно последних четырёх цифр"},
          {u"reference"_s, u"TEXT"_s, "only with this in their reference: receipt, order, refund, address", "только с этим в документе: чек, заказ, возврат, адрес; достаточно части"},
          {u"since"_s, u"TIME"_s, "last tried at this time or later: today, yesterday, 2h, 7d, 2026-11-22, '2026-11-22 14:00'", "последняя попытка не раньше: today, yesterday, 2h, 7d, 2026-11-22, '2026-11-22 14:00'"},
          {u"until"_s, u"TIME"_s, "last tried before this time; a day is included as a whole", "последняя попытка до этого времени; день включается целиком"},
          {u"verdict"_s, u"VERDICT"_s, "only delivered, dropped or kept ones", "только delivered (доставлено), dropped (снято с доставки) или kept (осталось)"},
          {u"limit"_s, u"N"_s, "messages to show, 50 by default", "сколько сообщений показать, по умолчанию 50"}},
         "what became of messages, newest first; with --json one object per line",
         "что стало с сообщениями, новые сверху; с --json по объекту в строке",
         u"queuectl history --reference 4711 --since yesterday"_s, showHistory},
        {u"outages"_s, QString(), 0, 0,
         {{u"since"_s, u"TIME"_s, "from when on, today by default: yesterday, 2h, 7d, '2026-11-22 14:00'", "с какого времени, по умолчанию today: yesterday, 2h, 7d, '2026-11-22 14:00'"},
          {u"type"_s, u"TYPE"_s, "only this type", "только этот тип"}},
         "which services were away, when and for how long",
         "какие сервисы были недоступны, когда и сколько",
         u"queuectl outages --since yesterday"_s, showOutages},
        {u"settle"_s, QString(), 0, 0,
         {{u"before"_s, u"TIME"_s, "rows written before then, now by default: today, 2h, '2026-11-22 14:00'", "строки, записанные раньше; по умолчанию сейчас: today, 2h, '2026-11-22 14:00'"},
          {u"type"_s, u"TYPE"_s, "only this type; may be given several times", "только этот тип; можно указать несколько раз"},
          {u"wait"_s, u"SECONDS"_s, "how long the service may try, 30 by default; 0: look only", "сколько ждать службу, по умолчанию 30; 0 — только посмотреть"}},
         "whether the shift may be closed: has the service try what waits, then lists what blocks and who must act",
         "можно ли закрыть смену: служба пробует доставить всё, затем список того, что мешает и кто должен действовать",
         u"queuectl settle --wait 60"_s, settle},
        {u"put"_s, u"TYPE FILE"_s, 2, 2,
         {{u"card"_s, u"CARD"_s, "card number of the row", "номер карты для строки"},
          {u"force"_s, {}, "write the row despite errors", "записать несмотря на ошибки"}},
         "check a body, {\"url\": ...}, in FILE (- is standard input), and write a row with it",
         "проверить тело, {\"url\": ...}, из FILE (- — стандартный ввод) и записать строку с ним",
         u"queuectl put cardlab body.json"_s, putRow},
        {u"lint"_s, u"FILE"_s, 1, 1,
         {{u"type"_s, u"TYPE"_s, "the type, when FILE holds only a body", "тип, если в FILE только тело"}},
         "check a whole row, {\"type\": ..., \"body\": {...}}, before it is written; with --type only a body",
         "проверить строку целиком, {\"type\": ..., \"body\": {...}}, до записи; с --type — только тело",
         u"queuectl lint --type cardlab body.json"_s, lintRow},
        {u"types"_s, u"[TYPE]"_s, 0, 1,
         {{u"names"_s, {}, "only the names, one per line", "только имена, по одному в строке"}},
         "the message types and the keys of their bodies",
         "типы сообщений и ключи их тел",
         u"queuectl types cardlab"_s, showTypes},
        {u"start"_s, u"TYPE [CARD]"_s, 1, 2, {},
         "have the service try a type now",
         "заставить службу обработать тип сейчас",
         u"queuectl start cardlab"_s, startWorker},
        {u"errors"_s, {}, 0, 0,
         {{u"reset"_s, {}, "set the count to 0", "обнулить счётчик"}},
         "how many database errors the service has met",
         "сколько ошибок базы данных встретила служба",
         u"queuectl errors --reset"_s, showErrors},
        {u"drop"_s, u"ID"_s, 1, 1, {yes},
         "delete a row undelivered",
         "удалить строку без доставки",
         u"queuectl drop 1207"_s, dropRow},
        {u"requeue"_s, u"ID"_s, 1, 1, {yes},
         "move a row to the end of the queue, under a new id",
         "перенести строку в конец очереди под новым номером",
         u"queuectl requeue 1207"_s, requeueRow},
        {u"export"_s, u"[TYPE]"_s, 0, 1,
         {{u"output"_s, u"FILE"_s, "write to FILE instead of standard output", "писать в FILE вместо стандартного вывода"}},
         "write the rows as JSON lines, secrets included",
         "выгрузить строки как JSON-строки, вместе с секретами",
         u"queuectl export --output rows.jsonl"_s, exportRows},
        {u"import"_s, u"FILE"_s, 1, 1,
         {{u"any-type"_s, {}, "take types that the service does not deliver", "принять типы, которых служба не доставляет"},
          {u"partial"_s, {}, "take a file without its closing line", "принять файл без завершающей строки"}},
         "write the rows of an export under new ids, all or none",
         "записать выгруженные строки под новыми номерами, все или ни одной",
         u"queuectl import rows.jsonl"_s, importRows},
        {u"restore"_s, u"FILE"_s, 1, 1, {yes},
         "put a backup in place of the SQLite file, while the service is stopped",
         "поставить резервную копию на место файла SQLite при остановленной службе",
         u"queuectl restore /backup/queues.db"_s, restoreDatabase},
        {u"doctor"_s, {}, 0, 0, {},
         "look at settings, database, rights, clock, port and certificates",
         "проверить настройки, базу, права, часы, порт и сертификаты",
         u"queuectl doctor"_s, examine},
        {u"check"_s, {}, 0, 0,
         {{u"older"_s, u"SPAN"_s, "how long a row may wait, 1h by default: 90s, 15m, 2h, 7d", "сколько строка может ждать, по умолчанию 1h: 90s, 15m, 2h, 7d"},
          {u"dropped"_s, {}, "complain of messages that were dropped in the last 24 hours, too", "сообщать и о снятых с доставки за последние 24 часа"},
          {u"failing"_s, u"SPAN"_s, "how long a type may fail, 15m by default", "сколько тип может получать отказы, по умолчанию 15m"}},
         "one line for Nagios, Icinga and Zabbix; exit codes 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN",
         "одна строка для Nagios, Icinga и Zabbix; коды выхода 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN",
         u"queuectl check --older 2h --dropped"_s, checkQueue},
        {u"metrics"_s, {}, 0, 0,
         {{u"openmetrics"_s, {}, "strictly as OpenMetrics has it, instead of the text that node_exporter reads", "строго по OpenMetrics, а не текст, который читает node_exporter"}},
         "figures for Prometheus, as the text format of its exporters",
         "показатели для Prometheus в текстовом формате экспортёров",
         u"queuectl metrics"_s, showMetrics},
        {u"report"_s, {}, 0, 0,
         {{u"html"_s, u"FILE"_s, "where to write the page (- is standard output)", "куда записать страницу (- — стандартный вывод)"},
          {u"since"_s, u"TIME"_s, "how far back deliveries, failures and dropped messages go, 7d by default: 2h, yesterday, '2026-11-22 14:00'", "с какого времени доставка, отказы и снятые сообщения, по умолчанию 7d: 2h, yesterday, '2026-11-22 14:00'"}},
         "one page to look at or to attach to a ticket, secrets masked",
         "одна страница для просмотра или для заявки, секреты скрыты",
         u"queuectl report --html report.html --since 7d"_s, makeReport},
        {u"bundle"_s, {}, 0, 0,
         {{u"output"_s, u"FILE"_s, "name of the archive", "имя архива"},
          {u"since"_s, u"TIME"_s, "how far back the delivery journal and the logs go, one day by default: 2h, yesterday, '2026-11-22 14:00'", "с какого времени журнал доставки и журналы службы, по умолчанию за сутки: 2h, yesterday, '2026-11-22 14:00'"}},
         "one archive for support, secrets masked",
         "один архив для поддержки, секреты скрыты",
         u"queuectl bundle --since yesterday"_s, makeBundle},
    };
    // clang-format on
    return table;
}

const QList<Option> &commonOptions()
{
    static const QList<Option> options = {
        {u"json"_s, {}, "print JSON", "выводить JSON"},
        {u"help"_s, {}, "show this help", "показать эту справку"},
    };
    return options;
}

int Call::number(const QString &option, int usual, int smallest) const
{
    if (!has(option))
        return usual;
    bool isNumber = false;
    const int number = value(option).toInt(&isNumber);
    if (!isNumber || number < smallest)
        throw Failure(Usage, text("--%1 takes a whole number from %2 on, not '%3'",
                                  "--%1 — целое число не меньше %2, а не '%3'")
                                 .arg(option, QString::number(smallest), value(option)));
    return number;
}

int rowId(const Call &call)
{
    bool isNumber = false;
    const int id = call.arguments.first().toInt(&isNumber);
    if (!isNumber || id < 1)
        throw Failure(Usage, text("'%1' is not a row id (a whole number from 1 on)",
                                  "'%1' — не номер строки (целое число не меньше 1)")
                                 .arg(call.arguments.first()));
    return id;
}

QStringList deliveredTypes()
{
    QStringList types;
    for (const HandlerRow &row : handlerTable())
        types.append(QString::fromUtf16(row.type));
    return types;
}

bool isDelivered(const QString &type)
{
    static const QStringList types = deliveredTypes();
    return types.contains(type);
}

void requireDelivered(const QString &type)
{
    if (isDelivered(type))
        return;
    const QString meant = nearest(type, deliveredTypes());
    throw Failure(
        NotFound,
        text("The service has no handler for type '%1'%2 (queuectl types lists them)",
             "У службы нет обработчика типа '%1'%2 (все типы: queuectl types)")
            .arg(type, meant.isEmpty()
                           ? QString()
                           : text("; did you mean %1?", "; имелось в виду %1?").arg(meant)));
}

} // namespace queuectl
