#include "tools/queuectl/situation.h"

#include "handlers/apmindbox/settings.h"
#include "handlers/mindbox/settings.h"
#include "handlers/payment/atolpay/settings.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include <QJsonArray>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int maxAddressDepth = 4;

QString hostOf(const QString &address)
{
    const QUrl url(address.trimmed());
    if (url.host().isEmpty())
        return {};
    return url.port() < 0 ? url.host() : u"%1:%2"_s.arg(url.host(), QString::number(url.port()));
}

QString portText(const QJsonValue &port)
{
    const QString text = port.toVariant().toString();
    return text.isEmpty() ? QString() : u':' + text;
}

QString addressIn(const QJsonValue &value, int depth);

/// The hosts of a list, each once, in their order.
QString hostsIn(const QJsonArray &list)
{
    QStringList hosts;
    for (const QJsonValue &entry : list) {
        const QString text = entry.toString();
        const QString named = entry.isObject() ? addressIn(entry, maxAddressDepth) : hostOf(text);
        const QString host = named.isEmpty() ? text : named;
        if (!host.isEmpty() && !hosts.contains(host))
            hosts.append(host);
    }
    return hosts.join(u", "_s);
}

/// The first address in the object; its own members come before those of nested objects.
QString addressIn(const QJsonValue &value, int depth)
{
    if (value.isArray()) {
        for (const QJsonValue &entry : value.toArray()) {
            const QString text = entry.toString();
            const bool isAddress = text.startsWith(u"http://"_s) || text.startsWith(u"https://"_s);
            const QString found = isAddress                  ? hostOf(text)
                                  : depth == maxAddressDepth ? QString()
                                                             : addressIn(entry, depth + 1);
            if (!found.isEmpty())
                return found;
        }
        return {};
    }
    const QJsonObject object = value.toObject();
    for (const QString &key : {u"url"_s, u"URL"_s, u"Url"_s, u"address"_s, u"endpoint"_s}) {
        const QString host = hostOf(object.value(key).toString());
        if (!host.isEmpty())
            return host;
    }
    for (const QString &key :
         {u"urls"_s, u"hosts"_s, u"addresses"_s, u"url"_s, u"host"_s, u"address"_s}) {
        const QString hosts = hostsIn(object.value(key).toArray());
        if (!hosts.isEmpty())
            return hosts;
    }
    const QJsonValue host = object.value(u"host"_s);
    if (host.isString() && !host.toString().isEmpty()) {
        const QString named = hostOf(host.toString());
        return named.isEmpty() ? host.toString() + portText(object.value(u"port"_s)) : named;
    }
    // A peer over plain TCP is a host and a port.
    const QString url = object.value(u"url"_s).toString();
    if (!url.isEmpty() && !url.contains(u"://"_s) && object.contains(u"port"_s))
        return url + portText(object.value(u"port"_s));
    for (const QJsonValue &member : object) {
        const QString text = member.toString();
        if (text.startsWith(u"http://"_s) || text.startsWith(u"https://"_s))
            return hostOf(text);
    }
    if (depth == maxAddressDepth)
        return {};
    for (const QJsonValue &member : object) {
        const QString found = addressIn(member, depth + 1);
        if (!found.isEmpty())
            return found;
    }
    return {};
}

/// The setting with the address of a type whose messages carry none.
struct AddressSetting
{
    QString typePrefix;
    Setting<QString> setting;
};

} // namespace

Situation Situation::read()
{
    Situation situation;
    situation.failIds = readFailIds();
    situation.journal_ = std::make_shared<JournalFile>();
    JournalFile &journal = *situation.journal_;
    situation.streaks = journal.streaks();
    situation.today = journal.ended(QDate::currentDate().startOfDay());
    situation.isWhole = journal.isWhole();
    const auto oldest = journal.oldest();
    if (oldest && JournalFile::isEnabled())
        situation.knownSince = oldest->first;
    return situation;
}

std::optional<JournalEntry> Situation::entryOf(const Row &row) const
{
    const auto entries = entriesOf({row});
    const auto found = entries.constFind(row.id);
    return found == entries.constEnd() ? std::nullopt : std::optional<JournalEntry>(*found);
}

QHash<int, JournalEntry> Situation::entriesOf(const QList<Row> &rows) const
{
    QHash<QString, QList<int>> ids;
    QHash<int, QDateTime> written;
    for (const Row &row : rows) {
        ids[row.type].append(row.id);
        written.insert(row.id, row.creationTime);
    }
    QHash<int, JournalEntry> result;
    for (const auto &[type, idsOfType] : ids.asKeyValueRange()) {
        const auto entries = journal_->newest(type, idsOfType);
        for (const JournalEntry &entry : entries) {
            // A table that the till created may reuse the number of a deleted row.
            const QDateTime since = written.value(entry.id);
            if (!since.isValid() || !entry.last.isValid() || entry.last >= since)
                result.insert(entry.id, entry);
        }
    }
    return result;
}

bool Situation::wasRefused(const Row &row, const std::optional<JournalEntry> &entry) const
{
    const auto failId = failIds.of(row.type);
    return (failId && row.id <= *failId) || (entry && entry->verdict == u"kept");
}

Cause Situation::cause(const Row &row, const std::optional<JournalEntry> &entry) const
{
    if (!isDelivered(row.type))
        return Cause::NoHandler;
    if (!row.object())
        return Cause::Body;
    if (entry)
        return entry->verdict == u"kept" ? causeOfKind(entry->kind) : Cause::Repeat;
    if (wasRefused(row, entry))
        return Cause::Other;
    return isKnownSince(row.creationTime) ? Cause::Turn : Cause::Unknown;
}

bool Situation::isKnownSince(const QDateTime &time) const
{
    return isWhole || (time.isValid() && knownSince.isValid() && knownSince <= time);
}

QString destinationOf(const QString &type, const QJsonObject &body)
{
    const QString address = addressIn(body, 0);
    if (!address.isEmpty())
        return address;
    static const AddressSetting addresses[] = {
        {u"apmindbox"_s, settings::apmindbox::url},
        {u"mindbox"_s, settings::mindbox::url},
        {u"atolpay"_s, settings::atolpay::url},
    };
    for (const auto &[typePrefix, setting] : addresses) {
        if (!type.startsWith(typePrefix, Qt::CaseInsensitive))
            continue;
        const QString host = hostOf(setting.value());
        return host.isEmpty() ? u"[%1]"_s.arg(setting.key) : host;
    }
    return {};
}

} // namespace queuectl
