#include "tests/faults/till.h"

#include "rig/controlport.h"
#include "rig/waiting.h"

#include <QJsonDocument>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace faults {

Till::Till(const QString &settings, const QMap<QString, QString> &environment)
    : table({.file = place.databaseFile()})
    , process(QStringLiteral(QUEUE_PROGRAM), place, environment)
{
    place.setSettings(place.queueSettings() + settings);
    table.createTables();
}

void Till::start()
{
    process.start();
    const bool isUp = rig::waitUntil(
        [this] { return process.hasEnded() || ask("/status").contains("messagesCount"); });
    if (!isUp || process.hasEnded())
        qFatal("the service does not start:\n%s%s", qPrintable(process.log().text()),
               qPrintable(process.errors()));
}

int Till::put(const QString &type, const QJsonObject &body, const QString &cardNumber)
{
    rig::TableRow row;
    row.type = type;
    row.body = QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact));
    row.cardNumber = cardNumber;
    return table.put(row);
}

QList<int> Till::ids()
{
    QList<int> result;
    const QList<rig::TableRow> rows = table.rows();
    for (const rig::TableRow &row : rows)
        result.append(row.id);
    return result;
}

bool Till::waitUntilRemoved(int id)
{
    return rig::waitUntil([this, id] { return !isIn(id); });
}

bool Till::waitForEnds(const QString &type, int count)
{
    const bool isReached =
        rig::waitUntil([&] { return process.hasEnded() || process.log().ends(type) >= count; });
    return isReached && !process.hasEnded();
}

QStringList Till::lines(const QString &category) const
{
    QStringList result;
    for (const rig::LogRecord &record : process.log().records()) {
        if (record.category == category)
            result.append(record.text);
    }
    return result;
}

QList<int> Till::exchangeTimes(const QString &type) const
{
    static const QRegularExpression time(u"\\AОтвет: .*, мс: (\\d+), байт: "_s);
    QList<int> result;
    const QStringList texts = lines(type);
    for (const QString &text : texts) {
        const QRegularExpressionMatch match = time.match(text);
        if (match.hasMatch())
            result.append(match.captured(1).toInt());
    }
    return result;
}

QByteArray Till::ask(const QByteArray &target) const
{
    return rig::askControl(place.controlPort(), target, std::chrono::seconds(30));
}

double Till::processorSeconds() const
{
    return std::chrono::duration<double>(process.use().processorTime()).count();
}

} // namespace faults
