#include "tools/catalogue/catalogue.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

/// A resource of a static library is linked only when a program asks for it. The macro must be
/// outside of namespaces.
static void initData()
{
    Q_INIT_RESOURCE(catalogue);
}

namespace catalogue {

namespace {

const QStringList kinds{u"text"_s,    u"url"_s,    u"file"_s,  u"integer"_s, u"number"_s,
                        u"boolean"_s, u"object"_s, u"array"_s, u"any"_s};
const QString hidden = u"***"_s;
const QStringList verdicts{u"delivered"_s, u"dropped"_s, u"kept"_s};
const QStringList failureKinds{u"network"_s, u"certificate"_s, u"credentials"_s, u"request"_s,
                               u"service"_s};

/// Reads objects of the files and collects their faults.
class Reader
{
public:
    explicit Reader(const QString &folder)
        : folder(folder)
    {
    }

    Catalogue read();

private:
    QJsonObject readFile(const QString &name);
    void allow(const QJsonObject &object, const QStringList &members);
    QString text(const QJsonObject &object, const QString &member);
    QStringList texts(const QJsonObject &object, const QString &member);
    bool flag(const QJsonObject &object, const QString &member);
    void fault(const QString &what);

    Key readKey(const QJsonObject &object);
    Outcome readOutcome(const QJsonObject &object);
    void addKeys(Type &type, const QJsonArray &keys, const QString &prefix);
    void addOutcomes(Type &type, const QJsonArray &outcomes);
    void addSharedOutcomes(Type &type, const QJsonArray &outcomes);
    Type readType(const QJsonObject &object, const QString &group);

    QString folder;
    /// What a fault is about: the file, and the type in it.
    QString place;
    QJsonObject fragments;
    QStringList faults;
};

void Reader::fault(const QString &what)
{
    faults.append(u"%1: %2"_s.arg(place, what));
}

QJsonObject Reader::readFile(const QString &name)
{
    place = name;
    QFile file(folder + u'/' + name);
    if (!file.open(QIODevice::ReadOnly)) {
        fault(u"cannot be read"_s);
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isObject())
        fault(u"no JSON object, %1 at byte %2"_s.arg(error.errorString(),
                                                     QString::number(error.offset)));
    return document.object();
}

void Reader::allow(const QJsonObject &object, const QStringList &members)
{
    const QStringList present = object.keys();
    for (const QString &member : present) {
        if (!members.contains(member))
            fault(u"unknown member '%1'"_s.arg(member));
    }
}

QString Reader::text(const QJsonObject &object, const QString &member)
{
    const QString value = object.value(member).toString();
    if (value.isEmpty())
        fault(u"no text under '%1'"_s.arg(member));
    return value;
}

QStringList Reader::texts(const QJsonObject &object, const QString &member)
{
    const QJsonValue value = object.value(member);
    if (!value.isUndefined() && !value.isArray())
        fault(u"no list under '%1'"_s.arg(member));
    QStringList list;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &element : array) {
        if (element.toString().isEmpty())
            fault(u"something else than a text under '%1'"_s.arg(member));
        list.append(element.toString());
    }
    return list;
}

bool Reader::flag(const QJsonObject &object, const QString &member)
{
    const QJsonValue value = object.value(member);
    if (!value.isUndefined() && !value.isBool())
        fault(u"neither true nor false under '%1'"_s.arg(member));
    return value.toBool();
}

Key Reader::readKey(const QJsonObject &object)
{
    allow(object, {u"key"_s, u"kind"_s, u"required"_s, u"default"_s, u"secret"_s, u"about"_s,
                   u"aboutRu"_s});
    Key key;
    key.name = text(object, u"key"_s);
    key.kind = text(object, u"kind"_s);
    if (!kinds.contains(key.kind))
        fault(u"key '%1' is of the unknown kind '%2'"_s.arg(key.name, key.kind));
    key.required = flag(object, u"required"_s);
    key.defaultValue = object.value(u"default"_s);
    key.secret = flag(object, u"secret"_s);
    key.about = text(object, u"about"_s);
    key.aboutRu = text(object, u"aboutRu"_s);
    return key;
}

Outcome Reader::readOutcome(const QJsonObject &object)
{
    allow(object, {u"when"_s, u"whenRu"_s, u"verdict"_s, u"kinds"_s, u"reasons"_s, u"scenarios"_s});
    Outcome outcome;
    outcome.when = text(object, u"when"_s);
    outcome.whenRu = text(object, u"whenRu"_s);
    outcome.verdict = text(object, u"verdict"_s);
    outcome.kinds = texts(object, u"kinds"_s);
    outcome.reasons = texts(object, u"reasons"_s);
    outcome.scenarios = texts(object, u"scenarios"_s);

    const bool isKept = outcome.verdict == u"kept";
    if (!verdicts.contains(outcome.verdict))
        fault(u"unknown verdict '%1'"_s.arg(outcome.verdict));
    if (isKept != object.contains(u"kinds"_s))
        fault(u"'kinds' belongs to a kept row, and to no other: %1"_s.arg(outcome.when));
    for (const QString &kind : std::as_const(outcome.kinds)) {
        if (!failureKinds.contains(kind))
            fault(u"unknown kind of failure '%1'"_s.arg(kind));
    }
    if (outcome.verdict == u"dropped" && outcome.reasons.isEmpty())
        fault(u"no reason is told for what is dropped: %1"_s.arg(outcome.when));
    if (outcome.scenarios.isEmpty())
        fault(u"no scenario shows '%1'"_s.arg(outcome.when));
    return outcome;
}

/// An element is a key, the name of a fragment, or `{ "below": path, "use": fragment }`, which puts
/// the keys of a fragment below a path.
void Reader::addKeys(Type &type, const QJsonArray &keys, const QString &prefix)
{
    for (const QJsonValue &element : keys) {
        QString fragment = element.toString();
        QString path = prefix;
        const QJsonObject object = element.toObject();
        if (object.contains(u"use"_s)) {
            allow(object, {u"use"_s, u"below"_s});
            fragment = text(object, u"use"_s);
            path += text(object, u"below"_s) + u'.';
        }
        if (fragment.isEmpty()) {
            Key key = readKey(object);
            key.name.prepend(path);
            const bool isThere = std::ranges::any_of(
                type.keys, [&key](const Key &other) { return other.name == key.name; });
            if (isThere)
                fault(u"key '%1' is there twice"_s.arg(key.name));
            type.keys.append(key);
        } else if (!fragments.value(fragment).isArray()) {
            fault(u"no fragment '%1'"_s.arg(fragment));
        } else {
            addKeys(type, fragments.value(fragment).toArray(), path);
        }
    }
}

void Reader::addOutcomes(Type &type, const QJsonArray &outcomes)
{
    for (const QJsonValue &element : outcomes) {
        const QString fragment = element.toString();
        if (fragment.isEmpty())
            type.outcomes.append(readOutcome(element.toObject()));
        else if (!fragments.value(fragment).isArray())
            fault(u"no fragment '%1'"_s.arg(fragment));
        else
            addSharedOutcomes(type, fragments.value(fragment).toArray());
    }
}

void Reader::addSharedOutcomes(Type &type, const QJsonArray &outcomes)
{
    const qsizetype before = type.outcomes.size();
    addOutcomes(type, outcomes);
    for (qsizetype at = before; at < type.outcomes.size(); ++at)
        type.outcomes[at].isShared = true;
}

Type Reader::readType(const QJsonObject &object, const QString &group)
{
    Type type;
    type.name = text(object, u"type"_s);
    place += u", "_s + type.name;
    allow(object, {u"type"_s, u"handler"_s, u"about"_s, u"aboutRu"_s, u"keys"_s, u"openKeys"_s,
                   u"example"_s, u"outcomes"_s, u"settings"_s});
    type.group = group;
    type.handler = text(object, u"handler"_s);
    type.about = text(object, u"about"_s);
    type.aboutRu = text(object, u"aboutRu"_s);
    addKeys(type, object.value(u"keys"_s).toArray(), QString());
    type.openKeys = flag(object, u"openKeys"_s);
    type.example = object.value(u"example"_s).toObject();
    addOutcomes(type, object.value(u"outcomes"_s).toArray());
    type.settings = texts(object, u"settings"_s);
    if (type.keys.isEmpty())
        fault(u"no keys"_s);
    if (type.example.isEmpty())
        fault(u"no example"_s);
    if (type.outcomes.isEmpty())
        fault(u"no outcomes"_s);
    return type;
}

Catalogue Reader::read()
{
    const QStringList order = texts(readFile(u"order.json"_s), u"types"_s);
    fragments = readFile(u"fragments.json"_s);
    QHash<QString, Type> known;
    const QStringList files = QDir(folder).entryList({u"*.json"_s}, QDir::Files, QDir::Name);
    for (const QString &name : files) {
        if (name == u"order.json" || name == u"fragments.json")
            continue;
        const QJsonObject file = readFile(name);
        allow(file, {u"group"_s, u"types"_s});
        const QString group = text(file, u"group"_s);
        const QJsonArray entries = file.value(u"types"_s).toArray();
        if (entries.isEmpty())
            fault(u"no types"_s);
        for (const QJsonValue &entry : entries) {
            place = name;
            const qsizetype before = faults.size();
            const Type type = readType(entry.toObject(), group);
            if (known.contains(type.name))
                fault(u"the type is there twice"_s);
            if (!order.contains(type.name))
                fault(u"the type has no place in order.json"_s);
            if (faults.size() == before)
                known.insert(type.name, type);
        }
    }

    Catalogue catalogue;
    place = u"order.json"_s;
    for (const QString &name : order) {
        if (known.contains(name))
            catalogue.types.append(known.take(name));
        else
            fault(u"nothing is known of '%1'"_s.arg(name));
    }
    catalogue.faults = faults;
    return catalogue;
}

bool isInteger(const QJsonValue &value)
{
    bool isNumber = false;
    if (value.isString())
        value.toString().toLongLong(&isNumber);
    else if (value.isDouble())
        isNumber = value.toDouble() == static_cast<double>(value.toInteger());
    return isNumber;
}

bool isNumber(const QJsonValue &value)
{
    bool isNumber = value.isDouble();
    if (value.isString())
        value.toString().toDouble(&isNumber);
    return isNumber;
}

bool isUrl(const QJsonValue &value)
{
    const QUrl url(value.toString());
    return url.isValid() && !url.host().isEmpty()
           && (url.scheme() == u"http" || url.scheme() == u"https");
}

bool isOfKind(const QJsonValue &value, const QString &kind)
{
    if (kind == u"text")
        return value.isString() || value.isDouble() || value.isBool();
    if (kind == u"url")
        return isUrl(value);
    if (kind == u"file")
        return value.isString();
    if (kind == u"integer")
        return isInteger(value);
    if (kind == u"number")
        return isNumber(value);
    if (kind == u"boolean")
        return value.isBool();
    if (kind == u"object")
        return value.isObject();
    if (kind == u"array")
        return value.isArray();
    return true;
}

bool hasKeysBelow(const Type &type, const QString &path)
{
    return std::ranges::any_of(type.keys, [&path](const Key &key) {
        return key.name.startsWith(path + u'.') || key.name.startsWith(path + u"[]"_s);
    });
}

QString below(const QString &path, const QString &member)
{
    return path.isEmpty() ? member : path + u'.' + member;
}

void checkValue(const Type &type, const QString &path, const QJsonValue &value,
                QList<Fault> &faults);

void checkMembers(const Type &type, const QString &path, const QJsonObject &object,
                  QList<Fault> &faults)
{
    for (const Key &key : type.keys) {
        const QString member = key.name.section(u'.', -1);
        // A key is missing only when the object that should hold it exists.
        if (key.required && key.name == below(path, member) && !object.contains(member))
            faults.append({Fault::Kind::Missing, key.name, key.kind});
    }
    for (auto member = object.begin(); member != object.end(); ++member)
        checkValue(type, below(path, member.key()), member.value(), faults);
}

void checkValue(const Type &type, const QString &path, const QJsonValue &value,
                QList<Fault> &faults)
{
    const Key *key = keyAt(type, path);
    if (!key) {
        if (!type.openKeys)
            faults.append({Fault::Kind::Unknown, path, QString()});
        return;
    }
    if (!isOfKind(value, key->kind)) {
        faults.append({Fault::Kind::WrongKind, path, key->kind});
        return;
    }
    if (!hasKeysBelow(type, key->name))
        return;
    if (value.isObject())
        checkMembers(type, path, value.toObject(), faults);
    const QJsonArray elements = value.toArray();
    for (const QJsonValue &element : elements)
        checkValue(type, path + u"[]"_s, element, faults);
}

/// Services choose the names of such headers freely.
bool isSecretHeader(const QString &path)
{
    static const QRegularExpression pattern(u"auth|token|key|cookie|secret|passw|session"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern.match(path.section(u'.', -1)).hasMatch();
}

QString withoutPassword(const QString &text)
{
    QUrl url(text);
    if (url.password().isEmpty())
        return text;
    url.setPassword(hidden);
    return url.toString();
}

QJsonValue maskedValue(const Type &type, const QString &path, const QJsonValue &value)
{
    const Key *key = keyAt(type, path);
    if (key && (key->secret || (key->name.endsWith(u"eaders.*") && isSecretHeader(path))))
        return hidden;
    if (key && key->kind == u"url")
        return withoutPassword(value.toString());
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            member.value() = maskedValue(type, below(path, member.key()), member.value());
        return object;
    }
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        for (auto &&element : array)
            element = maskedValue(type, path + u"[]"_s, element);
        return array;
    }
    return value;
}

} // namespace

Catalogue readCatalogue(const QString &folder)
{
    return Reader(folder).read();
}

const QList<Type> &types()
{
    static const QList<Type> list = [] {
        initData();
        return readCatalogue(u":/catalogue/types"_s).types;
    }();
    return list;
}

const Type *find(const QString &name)
{
    for (const Type &type : types()) {
        if (type.name == name)
            return &type;
    }
    return nullptr;
}

const Key *keyAt(const Type &type, const QString &path)
{
    // Header names are compared without case. A key with this name takes precedence over `*`.
    const Key *any = nullptr;
    for (const Key &key : type.keys) {
        const bool isHeader = key.name.contains(u"eaders."_s);
        if (key.name.compare(path, isHeader ? Qt::CaseInsensitive : Qt::CaseSensitive) == 0)
            return &key;
        if (key.name.endsWith(u".*") && path.startsWith(QStringView(key.name).chopped(1))
            && !path.mid(key.name.size() - 1).contains(u"[]"))
            any = &key;
    }
    return any;
}

QList<Fault> check(const Type &type, const QJsonObject &body)
{
    QList<Fault> faults;
    checkMembers(type, QString(), body, faults);
    return faults;
}

QJsonObject masked(const Type &type, const QJsonObject &body)
{
    return maskedValue(type, QString(), body).toObject();
}

bool fits(const QString &pattern, const QString &text)
{
    const QString expression = QRegularExpression::escape(pattern).replace(u"\\*"_s, u".*"_s);
    return QRegularExpression(QRegularExpression::anchoredPattern(expression),
                              QRegularExpression::DotMatchesEverythingOption)
        .match(text)
        .hasMatch();
}

} // namespace catalogue
