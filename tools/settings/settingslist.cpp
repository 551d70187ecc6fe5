#include "tools/settings/settingslist.h"

#include "app/settings.h"
#include "engine/journalsettings.h"
#include "handlers/apmindbox/settings.h"
#include "handlers/loyalty/loymaxsettings.h"
#include "handlers/loyalty/mfg/settings.h"
#include "handlers/loyalty/spasibosettings.h"
#include "handlers/mindbox/settings.h"
#include "handlers/payment/atolpay/settings.h"
#include "shared/core/databasesettings.h"
#include "shared/document/processingsettings.h"
#include "shared/net/networksettings.h"

using namespace Qt::StringLiterals;

namespace settings {

namespace {

template <typename T>
constexpr Kind kindOf()
{
    if constexpr (std::is_same_v<T, int> || Setting<T>::isTime)
        return Kind::Number;
    else if constexpr (std::is_same_v<T, bool>)
        return Kind::Boolean;
    else if constexpr (std::is_same_v<T, QStringList>)
        return Kind::List;
    else
        return Kind::Text;
}

template <typename T>
constexpr Unit unitOf()
{
    if constexpr (std::is_same_v<T, std::chrono::seconds>)
        return Unit::Seconds;
    else if constexpr (std::is_same_v<T, std::chrono::milliseconds>)
        return Unit::Milliseconds;
    else
        return Unit::None;
}

QString defaultText(int value)
{
    return QString::number(value);
}

QString defaultText(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

QString defaultText(QStringView value)
{
    return value.toString();
}

QStringView sectionOf(QStringView key)
{
    return key.first(key.indexOf(u':'));
}

template <typename T>
Entry entry(const Setting<T> &setting)
{
    Entry entry;
    entry.key = setting.key.sliced(sectionOf(setting.key).size() + 1).toString();
    entry.kind = kindOf<T>();
    entry.defaultText = defaultText(setting.defaultValue);
    entry.unit = unitOf<T>();
    if (setting.smallest > std::numeric_limits<int>::min())
        entry.smallest = setting.smallest;
    entry.about = setting.about.toString();
    return entry;
}

/// The settings of one section; the first one names it.
template <typename T, typename... Others>
Section section(Scope scope, const QString &about, const Setting<T> &first,
                const Setting<Others> &...others)
{
    const QStringView name = sectionOf(first.key);
    Q_ASSERT(((sectionOf(others.key) == name) && ...));
    return {name.toString(), scope, about, {entry(first), entry(others)...}, std::nullopt};
}

Section section(Scope scope, const SettingPattern &pattern)
{
    return {pattern.section.toString(), scope, QString(), {}, pattern};
}

Section databaseSection()
{
    return section(Scope::Service, u"A change applies to connections that are opened after it."_s,
                   database::driver, database::name, database::socket, database::host,
                   database::port, database::user, database::password, database::connectTimeout);
}

Section apmindboxSection()
{
    return section(Scope::Types, QString(), apmindbox::url, apmindbox::endpoint,
                   apmindbox::secretKey, apmindbox::pointOfContact, apmindbox::brand,
                   apmindbox::timeout);
}

Section mfgSection()
{
    return section(
        Scope::Types,
        u"The client of the Mfg loyalty service. A message of type `mfg` carries its own address and account; of these settings it uses `timeout` only."_s,
        mfg::host, mfg::path, mfg::verificationPath, mfg::user, mfg::password, mfg::timeout,
        mfg::brand, mfg::verificationBrand, mfg::onlineStore, mfg::terminal);
}

Section atolpaySection()
{
    return section(
        Scope::Types,
        u"The till's own `/tallocash/cash/paysystems/atolpay/atolpay.ini` takes precedence; it is read before each message of type `atolpay`."_s,
        atolpay::url, atolpay::token, atolpay::timeout, atolpay::currency, atolpay::rmkId);
}

Section mindboxSection()
{
    return section(
        Scope::Types, QString(), mindbox::url, mindbox::endpoint, mindbox::secretKey,
        mindbox::pointOfContact, mindbox::timeout, mindbox::useIdempotencyKey,
        mindbox::responseTransactionIdName, mindbox::sendMobilePhoneAuthorizationCodeOperation,
        mindbox::resendMobilePhoneAuthorizationCodeOperation, mindbox::registerCustomerOperation,
        mindbox::returnOperation, mindbox::activateDiscountCardOperation,
        mindbox::activateVirtualDiscountCardOperation, mindbox::anonymousPreorderOperation,
        mindbox::authorizedPreorderOperation, mindbox::beginAnonymousOrderTransactionOperation,
        mindbox::beginAuthorizedOrderTransactionOperation,
        mindbox::beginUnauthorizedOrderTransactionOperation, mindbox::checkCustomerOperation,
        mindbox::checkMobilePhoneAuthorizationCodeOperation,
        mindbox::commitOrderTransactionOperation, mindbox::confirmMobilePhoneOperation,
        mindbox::editCustomerOperation, mindbox::replaceCardsOperation,
        mindbox::rollbackOrderTransactionOperation, mindbox::saveOfflineOrderOperation,
        mindbox::unauthorizedPreorderOperation);
}

} // namespace

const QList<Section> &sections()
{
    static const QList<Section> all{
        section(Scope::Service, QString(), queue::timeout, queue::port),
        databaseSection(),
        section(Scope::Service, QString(), journal::enabled, journal::days, journal::rows),
        section(Scope::Service, QString(), network::proxy, network::noProxy, network::caFile),
        apmindboxSection(),
        section(Scope::Types, apmindbox::redirect),
        section(Scope::Types, QString(), loymax::timeout, loymax::uncriticalErrors),
        mfgSection(),
        section(Scope::Types, QString(), spasibo::restRetryErrors, spasibo::sendLimit,
                spasibo::timeout),
        atolpaySection(),
        section(Scope::Types, processing),
        mindboxSection(),
    };
    return all;
}

const Section *findSection(const QString &name)
{
    for (const Section &section : sections()) {
        if (section.name == name)
            return &section;
    }
    return nullptr;
}

const Entry *findEntry(const Section &section, const QString &key)
{
    for (const Entry &entry : section.entries) {
        if (entry.key == key)
            return &entry;
    }
    return nullptr;
}

QStringList sectionNames()
{
    QStringList names;
    for (const Section &section : sections())
        names.append(section.name);
    return names;
}

QStringList keys(const Section &section)
{
    QStringList keys;
    for (const Entry &entry : section.entries)
        keys.append(entry.key);
    return keys;
}

} // namespace settings
