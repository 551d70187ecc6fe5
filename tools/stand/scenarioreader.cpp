#include "tools/stand/scenarioreader.h"

#include "tools/stand/objectreader.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

const QString httpPeer = u"http"_s;

/// Text of a setting: JSON's own spelling of numbers and truth values is the one that files use.
QString settingText(ObjectReader &reader, const QString &key)
{
    const QJsonValue value = reader.value(key);
    if (value.isBool())
        return value.toBool() ? u"true"_s : u"false"_s;
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 15);
    return reader.text(key);
}

/// A text, or JSON in its compact form.
QByteArray bytesOf(const QJsonValue &value)
{
    if (value.isObject())
        return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
    if (value.isArray())
        return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact);
    return value.toString().toUtf8();
}

QByteArray readBytes(ObjectReader &reader, const QString &key)
{
    const QJsonValue value = reader.value(key);
    if (!value.isUndefined() && !value.isString() && !value.isObject() && !value.isArray())
        reader.complain(key, u"a text, an object or a list is expected here"_s);
    return bytesOf(value);
}

QMap<QString, QString> readTexts(ObjectReader reader)
{
    QMap<QString, QString> result;
    const QStringList keys = reader.keys();
    for (const QString &key : keys)
        result.insert(key, settingText(reader, key));
    return result;
}

QMap<QString, QString> readFiles(ObjectReader reader)
{
    QMap<QString, QString> result;
    const QStringList paths = reader.keys();
    for (const QString &path : paths) {
        if (!path.startsWith(u'/'))
            reader.complain(path, u"the path of a file begins with a slash"_s);
        const QJsonValue value = reader.value(path);
        result.insert(path,
                      value.isObject() ? QString::fromUtf8(bytesOf(value)) : reader.lines(path));
    }
    return result;
}

std::optional<QString> readOptionalText(ObjectReader &reader, const QString &key)
{
    return reader.has(key) ? std::optional(reader.text(key)) : std::nullopt;
}

const QStringList verdicts{u"delivered"_s, u"dropped"_s, u"kept"_s};

Outcome outcomeOf(const RecordedOutcome &recorded)
{
    const bool isKept = recorded.verdict == u"kept";
    return {isKept ? Outcome::Fate::Kept : Outcome::Fate::Removed, {}, recorded};
}

Outcome readOutcomeObject(ObjectReader reader)
{
    static const QStringList kinds{u"none"_s,        u"network"_s, u"certificate"_s,
                                   u"credentials"_s, u"request"_s, u"service"_s};
    RecordedOutcome recorded;
    reader.neededText(u"verdict"_s);
    recorded.verdict = reader.choice(u"verdict"_s, verdicts);
    if (reader.has(u"kind"_s))
        recorded.kind = reader.choice(u"kind"_s, kinds);
    if (reader.has(u"status"_s))
        recorded.status = reader.number(u"status"_s, 0);
    recorded.reason = readOptionalText(reader, u"reason"_s);
    recorded.reference = readOptionalText(reader, u"reference"_s);

    Outcome outcome = outcomeOf(recorded);
    outcome.statusCode = readOptionalText(reader, u"keptWithStatuscode"_s);
    if (outcome.statusCode && outcome.fate != Outcome::Fate::Kept)
        reader.complain(u"keptWithStatuscode"_s, u"only a message that is kept has one"_s);
    reader.end();
    return outcome;
}

Outcome readOutcome(ObjectReader &reader, const Outcome &defaultOutcome)
{
    const QString key = u"outcome"_s;
    if (!reader.has(key))
        return defaultOutcome;
    if (reader.value(key).isObject())
        return readOutcomeObject(reader.object(key));
    const QString word = reader.choice(key, verdicts + QStringList{u"waiting"_s, u"removed"_s});
    if (word == u"waiting")
        return {Outcome::Fate::Kept};
    if (word == u"removed")
        return {Outcome::Fate::Removed};
    return outcomeOf({word});
}

QueuedMessage readMessage(ObjectReader reader, const Outcome &defaultOutcome)
{
    QueuedMessage message;
    message.type = reader.neededText(u"type"_s);
    message.body = QString::fromUtf8(readBytes(reader, u"body"_s));
    message.cardNumber = reader.text(u"cardnumber"_s);
    message.statusCode = reader.text(u"statuscode"_s);
    message.outcome = readOutcome(reader, defaultOutcome);
    reader.end();
    return message;
}

rig::Reply readReply(ObjectReader &exchange)
{
    rig::Reply reply;
    const QString key = u"reply"_s;
    const QJsonValue value = exchange.value(key);
    if (value.isUndefined())
        return reply;
    if (value.isDouble()) {
        reply.status = exchange.number(key, 200);
        return reply;
    }
    if (value.isString()) {
        const QString manner = exchange.choice(key, {u"close"_s, u"reset"_s, u"silence"_s});
        reply.manner = manner == u"close"   ? rig::Reply::Manner::Close
                       : manner == u"reset" ? rig::Reply::Manner::Reset
                                            : rig::Reply::Manner::Silence;
        return reply;
    }
    ObjectReader reader = exchange.object(key);
    reply.status = reader.number(u"status"_s, 200);
    reply.headers = readTexts(reader.object(u"headers"_s));
    reply.body = readBytes(reader, u"body"_s);
    if (!reader.value(u"body"_s).isString() && reader.has(u"body"_s)
        && !reply.headers.contains(u"Content-Type"_s))
        reply.headers.insert(u"Content-Type"_s, u"application/json"_s);
    if (reader.has(u"raw"_s)) {
        reply.manner = rig::Reply::Manner::Raw;
        reply.body = reader.text(u"raw"_s).toUtf8();
    }
    reply.cutAfter = reader.number(u"cutAfter"_s, -1);
    reply.delaySeconds = reader.seconds(u"delay"_s);
    reply.held = reader.flag(u"held"_s);
    reader.end();
    return reply;
}

rig::Exchange readExchange(ObjectReader reader, rig::PeerScript::Kind kind)
{
    rig::Exchange exchange;
    if (kind == rig::PeerScript::Kind::Tcp) {
        exchange.body = QString::fromUtf8(readBytes(reader, u"received"_s));
        reader.end();
        return exchange;
    }
    exchange.request = reader.neededText(u"request"_s);
    if (exchange.request.count(u' ') != 1 || !exchange.request.contains(u" /"_s))
        reader.complain(u"request"_s, u"verb and path are expected here, as in 'POST /cards'"_s);
    if (reader.has(u"headers"_s))
        exchange.headers = readTexts(reader.object(u"headers"_s));
    exchange.body = reader.value(u"body"_s);
    exchange.reply = readReply(reader);
    reader.end();
    return exchange;
}

/// The list under `plural`, each entry put over the single one; or the single one alone.
QJsonArray withTemplate(const QJsonObject &content, const QString &single, const QString &plural)
{
    const bool hasTemplate = content.contains(single);
    if (!content.contains(plural))
        return hasTemplate ? QJsonArray{content.value(single)} : QJsonArray{};
    QJsonArray result;
    const QJsonArray entries = content.value(plural).toArray();
    for (const QJsonValue &entry : entries)
        result.append(hasTemplate ? merged(content.value(single), entry) : entry);
    return result;
}

QList<rig::Exchange> readExchanges(ObjectReader &reader, const QJsonObject &content,
                                   rig::PeerScript::Kind kind)
{
    const QString single = u"exchange"_s;
    const QString plural = u"exchanges"_s;
    if (reader.has(single))
        reader.object(single);
    reader.objects(plural);
    const bool isList = content.contains(plural);
    QList<rig::Exchange> result;
    const QJsonArray entries = withTemplate(content, single, plural);
    for (const QJsonValue &entry : entries) {
        const QString place = isList ? u"%1[%2]"_s.arg(reader.place(plural)).arg(result.size())
                                     : reader.place(single);
        result.append(readExchange(ObjectReader(entry, place), kind));
    }
    return result;
}

rig::PeerScript::Kind kindOf(const QString &kind)
{
    return kind == u"tcp"     ? rig::PeerScript::Kind::Tcp
           : kind == u"https" ? rig::PeerScript::Kind::Https
                              : rig::PeerScript::Kind::Http;
}

rig::PeerScript readPeer(const QString &name, ObjectReader reader, const QJsonObject &content)
{
    rig::PeerScript peer;
    peer.name = name;
    peer.kind = kindOf(reader.choice(u"kind"_s, {u"http"_s, u"https"_s, u"tcp"_s}));
    peer.listening = reader.flag(u"listening"_s, true);
    peer.anyOrder = reader.flag(u"anyOrder"_s);
    if (peer.kind == rig::PeerScript::Kind::Https)
        peer.wantsClientCertificate = reader.flag(u"clientCertificate"_s);
    if (peer.kind == rig::PeerScript::Kind::Tcp)
        peer.greeting = readBytes(reader, u"greeting"_s);
    peer.exchanges = readExchanges(reader, content, peer.kind);
    reader.end();
    return peer;
}

Step readStep(ObjectReader reader, const QJsonValue &messageTemplate, const Outcome &defaultOutcome)
{
    // clang-format off
    static const QList<std::pair<QString, Step::Kind>> kinds{
        {u"pass"_s,      Step::Kind::Pass},      {u"put"_s,       Step::Kind::Put},
        {u"restart"_s,   Step::Kind::Restart},   {u"crash"_s,     Step::Kind::Crash},
        {u"up"_s,        Step::Kind::Up},        {u"down"_s,      Step::Kind::Down},
        {u"release"_s,   Step::Kind::Release},   {u"ask"_s,       Step::Kind::Ask},
        {u"awaitLog"_s,  Step::Kind::AwaitLog},  {u"write"_s,     Step::Kind::Write},
        {u"terminate"_s, Step::Kind::Terminate},
    };
    // clang-format on
    QStringList names;
    for (const auto &[name, kind] : kinds) {
        names.append(name);
        if (!reader.has(name))
            continue;
        Step step;
        step.kind = kind;
        switch (kind) {
        case Step::Kind::Put:
            step.message = readMessage(
                ObjectReader(merged(messageTemplate, reader.value(name)), reader.place(name)),
                defaultOutcome);
            break;
        case Step::Kind::Write:
            step.files = readFiles(reader.object(name));
            break;
        case Step::Kind::Restart:
        case Step::Kind::Crash:
        case Step::Kind::Terminate:
            if (!reader.flag(name))
                reader.complain(name, u"only true makes sense here"_s);
            if (step.kind != Step::Kind::Terminate && reader.has(u"write"_s))
                step.files = readFiles(reader.object(u"write"_s));
            break;
        default:
            step.subject = reader.neededText(name);
        }
        const bool startsAgain = kind == Step::Kind::Restart || kind == Step::Kind::Crash;
        const QString companion = kind == Step::Kind::Ask        ? u"answer"_s
                                  : kind == Step::Kind::AwaitLog ? u"count"_s
                                  : startsAgain                  ? u"write"_s
                                                                 : QString();
        if (kind == Step::Kind::Ask)
            step.answer = reader.value(companion);
        if (kind == Step::Kind::AwaitLog)
            step.count = reader.number(companion, 1);
        // Only what belongs to this kind of step may stand beside it.
        for (const QString &key : reader.keys()) {
            if (key != name && key != companion)
                reader.complain(key, u"does not belong to a step '%1'"_s.arg(name));
        }
        return step;
    }
    reader.complain(u"(step)"_s, u"one of %1 is expected here"_s.arg(names.join(u", "_s)));
}

QList<rig::CardRow> readCards(ObjectReader &reader, const QString &key)
{
    static const QStringList columns{u"id"_s, u"chequenumber"_s, u"cardnumber"_s, u"operationid"_s,
                                     u"operationinfo"_s};
    QList<rig::CardRow> result;
    const QList<ObjectReader> rows = reader.objects(key);
    for (ObjectReader row : rows) {
        rig::CardRow card;
        for (const QString &column : columns) {
            const QJsonValue value = row.value(column);
            card.insert(column, value.isObject() ? QString::fromUtf8(bytesOf(value))
                                                 : settingText(row, column));
        }
        row.end();
        result.append(card);
    }
    return result;
}

rig::Settings readSettings(ObjectReader reader)
{
    rig::Settings result;
    const QStringList sections = reader.keys();
    for (const QString &section : sections)
        result.insert(section, readTexts(reader.object(section)));
    return result;
}

QMap<QString, QString> readCertificates(ObjectReader reader)
{
    QMap<QString, QString> result;
    const QStringList paths = reader.keys();
    for (const QString &path : paths) {
        if (!path.startsWith(u'/'))
            reader.complain(path, u"the path of a file begins with a slash"_s);
        ObjectReader certificate = reader.object(path);
        result.insert(path, certificate.text(u"password"_s));
        certificate.end();
    }
    return result;
}

/// The peer `http` is always there; its script is at the scenario's own level or in `peers`.
QList<rig::PeerScript> readPeers(ObjectReader &reader, const QJsonObject &content)
{
    QList<rig::PeerScript> result;
    ObjectReader peers = reader.object(u"peers"_s);
    const QJsonObject peerContents = content.value(u"peers"_s).toObject();
    const QStringList names = peers.keys();
    for (const QString &name : names)
        result.append(readPeer(name, peers.object(name), peerContents.value(name).toObject()));
    if (!names.contains(httpPeer)) {
        rig::PeerScript peer;
        peer.name = httpPeer;
        peer.exchanges = readExchanges(reader, content, rig::PeerScript::Kind::Http);
        result.append(peer);
    } else if (content.contains(u"exchange"_s) || content.contains(u"exchanges"_s)) {
        reader.complain(u"exchanges"_s, u"the peer 'http' of 'peers' has its own"_s);
    }
    return result;
}

QList<QueuedMessage> readMessages(ObjectReader &reader, const QJsonObject &content,
                                  const Outcome &defaultOutcome)
{
    const QString single = u"message"_s;
    const QString plural = u"messages"_s;
    if (reader.has(single))
        reader.object(single);
    reader.objects(plural);
    const bool isList = content.contains(plural);
    QList<QueuedMessage> result;
    const QJsonArray messages = withTemplate(content, single, plural);
    for (const QJsonValue &message : messages) {
        const QString place = isList ? u"%1[%2]"_s.arg(reader.place(plural)).arg(result.size())
                                     : reader.place(single);
        result.append(readMessage(ObjectReader(message, place), defaultOutcome));
    }
    return result;
}

QList<Step> readSteps(ObjectReader &reader, const QJsonObject &content,
                      const Outcome &defaultOutcome)
{
    const QStringList peerNames =
        content.value(u"peers"_s).toObject().keys() + QStringList{httpPeer};
    QList<Step> result;
    const QList<ObjectReader> steps = reader.objects(u"steps"_s);
    for (const ObjectReader &entry : steps) {
        const Step step = readStep(entry, content.value(u"message"_s), defaultOutcome);
        const bool namesPeer = step.kind == Step::Kind::Up || step.kind == Step::Kind::Down
                               || step.kind == Step::Kind::Release;
        if (namesPeer && !peerNames.contains(step.subject))
            reader.complain(u"steps"_s, u"there is no peer '%1'"_s.arg(step.subject));
        result.append(step);
    }
    return result;
}

} // namespace

QJsonValue merged(const QJsonValue &base, const QJsonValue &patch)
{
    if (!patch.isObject())
        return patch;
    QJsonObject result = base.toObject();
    const QJsonObject members = patch.toObject();
    for (auto member = members.constBegin(); member != members.constEnd(); ++member) {
        if (member.value().isNull())
            result.remove(member.key());
        else
            result.insert(member.key(), merged(result.value(member.key()), member.value()));
    }
    return result;
}

QList<rig::PeerScript> readPeerKinds(const QJsonObject &content, const QString &where)
{
    QList<rig::PeerScript> result;
    ObjectReader peers = ObjectReader(content, where).object(u"peers"_s);
    const QStringList names = peers.keys();
    for (const QString &name : names) {
        rig::PeerScript peer;
        peer.name = name;
        peer.kind = kindOf(peers.object(name).text(u"kind"_s, u"http"_s));
        result.append(peer);
    }
    if (!names.contains(httpPeer)) {
        rig::PeerScript peer;
        peer.name = httpPeer;
        result.append(peer);
    }
    return result;
}

Scenario readScenario(const QJsonObject &content, const QString &where, const QString &title)
{
    ObjectReader reader(content, where);
    Scenario result;
    result.title = title;
    result.name = reader.neededText(u"name"_s);
    reader.text(u"about"_s);
    reader.flag(u"sample"_s);
    reader.choice(u"database"_s, {u"any"_s, u"sqlite"_s, u"mariadb"_s});

    result.settings = readSettings(reader.object(u"settings"_s));
    result.files = readFiles(reader.object(u"files"_s));
    result.certificates = readCertificates(reader.object(u"certificates"_s));
    result.environment = readTexts(reader.object(u"environment"_s));
    result.cards = readCards(reader, u"cards"_s);
    if (reader.has(u"cardsAfter"_s))
        result.cardsAfter = readCards(reader, u"cardsAfter"_s);

    result.peers = readPeers(reader, content);
    const Outcome defaultOutcome = readOutcome(reader, outcomeOf({u"delivered"_s}));
    result.messages = readMessages(reader, content, defaultOutcome);
    result.steps = readSteps(reader, content, defaultOutcome);
    result.log = reader.texts(u"log"_s);
    result.logNever = reader.texts(u"logNever"_s);
    reader.end();
    return result;
}

} // namespace stand
