#include "tools/queuectl/doctor/networkchecks.h"

#include "shared/net/addressfault.h"
#include "shared/net/networksettings.h"
#include "shared/net/proxyrule.h"
#include "tools/queuectl/text.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The line in force: the last one of several.
std::optional<SettingLine> settingLine(const Setting<QString> &setting)
{
    std::optional<SettingLine> found;
    const QStringList paths = settingsFilePaths();
    for (const QString &path : paths) {
        const SettingsFile file = readSettingsFile(path);
        for (const SettingLine &line : file.settings) {
            if (line.section + u':' + line.key == setting.key)
                found = line;
        }
    }
    return found;
}

/// The host that an entry is meant for.
QString meantHost(const QString &entry)
{
    static const QRegularExpression around(
        uR"(^([a-zA-Z][a-zA-Z0-9+.-]*://)?(.*@)?(\*?\.+|\*)?|[/?#].*$)"_s);
    static const QRegularExpression port(uR"(^([^:]*|\[.*\]):[^:]*$)"_s);
    QString host = entry;
    host.remove(around);
    host.replace(port, u"\\1"_s);
    if (host.startsWith(u'[') && host.endsWith(u']'))
        host = host.sliced(1, host.size() - 2);
    return host;
}

bool isAddress(const QString &host)
{
    return !QHostAddress(host).isNull();
}

/// A host that the entry has to match. libcurl treats a network with unreadable bits as an address,
/// so for a network it is another address than the written one.
QString exampleHost(const QString &entry)
{
    const QString host = meantHost(entry);
    const bool isNetwork = entry.contains(u'/') && !entry.endsWith("/32"_L1)
                           && !entry.endsWith("/128"_L1) && isAddress(host);
    if (!isNetwork)
        return host;
    bool isIPv4 = false;
    const QHostAddress address(host);
    const quint32 number = address.toIPv4Address(&isIPv4);
    if (isIPv4)
        return QHostAddress(number ^ 1).toString();
    Q_IPV6ADDR bytes = address.toIPv6Address();
    bytes[15] ^= 1;
    return QHostAddress(bytes).toString();
}

QString entryFault(const QString &entry)
{
    const QString host = meantHost(entry);
    if (entry.contains("://"_L1))
        return text("an entry has no scheme", "схема не пишется");
    if (entry == u"*")
        return text("* is allowed only as the single entry",
                    "* допускается только без других записей");
    if (entry.contains(u'*'))
        return text("write a domain without the star, .shop.example for all its hosts",
                    "домен пишется без звёздочки, .shop.example — все его узлы");
    if (entry.contains(u'/') && isAddress(host))
        return text("it is not a network as libcurl reads it, such as 10.0.0.0/8",
                    "libcurl понимает сети вида 10.0.0.0/8");
    if (entry.contains(u'/'))
        return text("an entry has no path", "путь не пишется");
    if (entry.contains(u'['))
        return text("an IPv6 address has no brackets here", "адрес IPv6 пишется без скобок");
    if (entry.contains(u':') && !isAddress(entry))
        return text("an entry has no port", "порт не пишется");
    const QString ace = QString::fromLatin1(QUrl::toAce(host));
    if (!ace.isEmpty() && ace != host.toLower())
        return text("write it as %1", "пишется как %1").arg(ace);
    return text("it is not a host name", "это не имя узла");
}

bool hasUnescapedSign(const QString &proxy)
{
    const qsizetype scheme = proxy.indexOf("://"_L1);
    const qsizetype start = scheme < 0 ? 0 : scheme + 3;
    const qsizetype at = proxy.lastIndexOf(u'@');
    if (at < start)
        return false;
    const QStringView account = QStringView(proxy).sliced(start, at - start);
    return std::any_of(account.cbegin(), account.cend(),
                       [](QChar sign) { return u"@/?#"_s.contains(sign); });
}

} // namespace

QString proxyFault(const QString &proxy)
{
    if (proxy.isEmpty())
        return {};
    if (hasUnescapedSign(proxy))
        return text(
            "network:proxy: the user or the password holds a character that must be written as a code: @ is %40, / is %2F, ? is %3F, # is %23",
            "network:proxy: в имени или пароле есть символ, который пишется кодом: @ — %40, / — %2F, ? — %3F, # — %23");
    if (!isUsableProxy(proxy))
        return text("network:proxy: '%1' is not the address of a proxy, nothing is delivered",
                    "network:proxy: '%1' — не адрес прокси-сервера, ничего не доставляется")
            .arg(maskedAddress(proxy));
    return {};
}

QStringList noProxyFaults(const QString &noProxy)
{
    static const QRegularExpression separator(u"[,\\s]+"_s);
    const QStringList entries = noProxy.split(separator, Qt::SkipEmptyParts);
    QStringList faults;
    if (entries == QStringList{u"*"_s})
        return faults;
    for (const QString &entry : entries) {
        if (entry == u"*" || !isReachedDirectly(exampleHost(entry), entry))
            faults.append(text("network:noProxy: '%1' matches no host: %2",
                               "network:noProxy: '%1' не подходит ни к одному узлу: %2")
                              .arg(maskedAddress(entry), entryFault(entry)));
    }
    return faults;
}

QList<SettingFault> checkNetworkSettings()
{
    QList<SettingFault> faults;
    const auto report = [&faults](SettingFault::Severity severity, const SettingLine &line,
                                  const QString &what) {
        faults.append({severity, line.file, line.line, what});
    };
    if (const auto line = settingLine(settings::network::proxy)) {
        const QString fault = proxyFault(line->value);
        if (!fault.isEmpty())
            report(SettingFault::Severity::Error, *line, fault);
    }
    if (const auto line = settingLine(settings::network::noProxy)) {
        const QStringList found = noProxyFaults(line->value);
        for (const QString &fault : found)
            report(SettingFault::Severity::Warning, *line, fault);
    }
    return faults;
}

} // namespace queuectl
