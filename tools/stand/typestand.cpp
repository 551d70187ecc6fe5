#include "tools/stand/typestand.h"

#include "tools/stand/scenarioerror.h"
#include "tools/stand/screen.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTime>
#include <QTimer>
#include <QUrlQuery>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

/// A value in a body, with the place where it stands.
using Leaf = std::pair<QString, QString>;

void collect(const QJsonValue &value, const QString &place, QList<Leaf> &leaves)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            collect(member.value(), place.isEmpty() ? member.key() : place + u'.' + member.key(),
                    leaves);
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (const QJsonValue &entry : array)
            collect(entry, place, leaves);
    } else if (value.isString() || value.isDouble() || value.isBool()) {
        leaves.append({place, value.toVariant().toString()});
    }
}

/// The values of a JSON or XML body, or of a form. Numbers of an XML element's kind are texts like
/// all else.
QList<Leaf> leavesOf(const QByteArray &body)
{
    QList<Leaf> leaves;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isNull()) {
        collect(document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()),
                QString(), leaves);
        return leaves;
    }
    const QString text = QString::fromUtf8(body);
    if (text.trimmed().startsWith(u'<')) {
        static const QRegularExpression value(
            uR"re(<(?:\w+:)?(\w+)[^<>]*>([^<>]*)</|[ ](\w+)="([^"]*)")re"_s);
        auto matches = value.globalMatch(text);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            const bool isElement = !match.captured(1).isEmpty();
            leaves.append(
                {match.captured(isElement ? 1 : 3), match.captured(isElement ? 2 : 4).trimmed()});
        }
        return leaves;
    }
    const auto items = QUrlQuery(text).queryItems();
    for (const auto &[name, value] : items)
        leaves.append({name, value});
    return leaves;
}

QSet<QString> placesIn(const QByteArray &body)
{
    QSet<QString> places;
    const QList<Leaf> leaves = leavesOf(body);
    for (const Leaf &leaf : leaves)
        places.insert(leaf.first);
    return places;
}

QByteArray bodyOf(const rig::Exchange &exchange)
{
    if (exchange.body.isString())
        return exchange.body.toString().toUtf8();
    if (exchange.body.isArray())
        return QJsonDocument(exchange.body.toArray()).toJson();
    return QJsonDocument(exchange.body.toObject()).toJson();
}

QString verbOf(const rig::Exchange &exchange)
{
    return exchange.request.section(u' ', 0, 0);
}

QString lastPartOf(const QString &target)
{
    return target.section(u'?', 0, 0).section(u'/', -1);
}

QByteArray identityOf(const rig::ArrivedRequest &request)
{
    return request.line().toUtf8() + '\n' + request.body;
}

/// How many of the places of both bodies are common to them, from 0 to 1.
double likeness(const QByteArray &one, const QByteArray &other)
{
    const QSet<QString> left = placesIn(one);
    const QSet<QString> right = placesIn(other);
    const qsizetype all = (left + right).size();
    return all == 0 ? 0 : double((left & right).size()) / double(all);
}

bool isPlain(const rig::Reply &reply)
{
    return reply.manner == rig::Reply::Manner::Answer && reply.cutAfter < 0 && !reply.held
           && reply.delaySeconds == 0;
}

bool isPlain(const QList<rig::Exchange> &exchanges)
{
    return std::all_of(exchanges.begin(), exchanges.end(),
                       [](const rig::Exchange &exchange) { return isPlain(exchange.reply); });
}

/// The first step that reports the state; -1: none.
qsizetype stepThatTells(const QList<rig::Exchange> &exchanges, const QString &state)
{
    for (qsizetype index = 0; index < exchanges.size(); ++index) {
        const QList<Leaf> leaves = leavesOf(exchanges[index].reply.body);
        if (std::any_of(leaves.begin(), leaves.end(),
                        [&](const Leaf &leaf) { return leaf.second == state; }))
            return index;
    }
    return -1;
}

/// Whether the answers tell the state last at some place, and not another one after it.
bool staysAt(const QList<rig::Exchange> &exchanges, const QString &state)
{
    QMap<QString, QString> last;
    for (const rig::Exchange &exchange : exchanges) {
        const QList<Leaf> leaves = leavesOf(exchange.reply.body);
        for (const auto &[place, value] : leaves)
            last.insert(place, value);
    }
    return last.values().contains(state);
}

qsizetype refusalsIn(const QList<rig::Exchange> &exchanges)
{
    return std::count_if(exchanges.begin(), exchanges.end(), [](const rig::Exchange &exchange) {
        return exchange.reply.status >= 400;
    });
}

QJsonValue replaced(const QJsonValue &value, const QString &at, const QString &place,
                    const QString &text)
{
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            *member = replaced(member.value(),
                               at.isEmpty() ? member.key() : at + u'.' + member.key(), place, text);
        return object;
    }
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        for (auto &&entry : array)
            entry = replaced(entry, at, place, text);
        return array;
    }
    if (at != place)
        return value;
    bool isNumber = false;
    const double number = text.toDouble(&isNumber);
    return value.isDouble() && isNumber ? QJsonValue(number) : QJsonValue(text);
}

/// The body with another value at the place, wherever it has the place.
QByteArray withValue(const QByteArray &body, const QString &place, const QString &value)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isObject())
        return QJsonDocument(replaced(document.object(), QString(), place, value).toObject())
            .toJson(QJsonDocument::Compact);
    if (document.isArray())
        return QJsonDocument(replaced(document.array(), QString(), place, value).toArray())
            .toJson(QJsonDocument::Compact);
    QString text = QString::fromUtf8(body);
    if (!text.trimmed().startsWith(u'<'))
        return body;
    const QString name = QRegularExpression::escape(place);
    const QString written = QString(value).toHtmlEscaped().replace(u'\\', u"\\\\"_s);
    text.replace(QRegularExpression(u"(<(?:\\w+:)?%1(?: [^<>]*)?>)[^<>]*(</)"_s.arg(name)),
                 u"\\1"_s + written + u"\\2"_s);
    text.replace(QRegularExpression(u"( %1=\")[^\"]*(\")"_s.arg(name)),
                 u"\\1"_s + written + u"\\2"_s);
    return text.toUtf8();
}

/// A word that a service may call a state: short, and no text for people.
bool isWord(const QString &value)
{
    static const QRegularExpression word(u"\\A[\\w-]{1,24}\\z"_s);
    return word.match(value).hasMatch();
}

} // namespace

TypeStand::TypeStand(const QString &scenarios, const TypeOptions &options)
    : options(options)
    , peer(options.port)
{
    QList<ScenarioSource> sources = loadScenarios(scenarios);
    sources.removeIf([&](const ScenarioSource &source) { return source.type() != options.type; });
    if (std::none_of(sources.begin(), sources.end(),
                     [](const ScenarioSource &source) { return source.isSample(); }))
        throw UsageError(say(u"Нет образца типа '%1'; --list показывает все"_s,
                             u"There is no sample of type '%1'; --list shows them all"_s)
                             .arg(options.type));
    chooseStory(sources);
    met = QList<QByteArray>(story.list.size());
}

TypeStand::~TypeStand() = default;

quint16 TypeStand::port() const
{
    return peer.port();
}

TypeStand::Exchanges TypeStand::exchangesOf(const ScenarioSource &source) const
{
    // All services of the scenario are this one.
    const QString number = QString::number(peer.port());
    Places places{
        {u"root"_s, u"/"_s}, {u"nobody"_s, u"http://127.0.0.1:9"_s}, {u"nobody.port"_s, u"9"_s}};
    const QList<rig::PeerScript> scripts = source.peers();
    for (const rig::PeerScript &script : scripts) {
        const auto kind = script.kind == rig::PeerScript::Kind::Tcp ? rig::PeerScript::Kind::Tcp
                                                                    : rig::PeerScript::Kind::Http;
        places.insert(script.name, rig::ScriptedPeer::address(kind, peer.port()));
        places.insert(script.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(script.name + u".port"_s, number);
    }
    const Scenario scenario = source.scenario(places);
    Exchanges result;
    result.title = source.title();
    for (const rig::PeerScript &script : scenario.peers) {
        if (script.kind == rig::PeerScript::Kind::Tcp)
            result.kind = rig::PeerScript::Kind::Tcp;
        if (result.greeting.isEmpty())
            result.greeting = script.greeting;
        result.list += script.exchanges;
    }
    return result;
}

void TypeStand::chooseStory(const QList<ScenarioSource> &sources)
{
    QList<Exchanges> stories;
    qsizetype sample = 0;
    for (const ScenarioSource &source : sources) {
        if (source.isSample() && !stories.isEmpty() && sample == 0)
            sample = stories.size();
        stories.append(exchangesOf(source));
    }
    for (const Exchanges &told : std::as_const(stories)) {
        for (const rig::Exchange &exchange : told.list) {
            if (!isPlain(exchange.reply))
                continue;
            others.append(exchange);
            const QList<Leaf> leaves = leavesOf(exchange.reply.body);
            for (const auto &[place, value] : leaves) {
                if (isWord(value))
                    states[place].insert(value);
            }
        }
    }
    story = stories[sample];
    if (options.state.isEmpty())
        return;
    if (const qsizetype sign = options.state.indexOf(u'='); sign > 0) {
        const QString place = options.state.left(sign);
        if (states.contains(place)) {
            const auto change = [&](QList<rig::Exchange> &exchanges) {
                for (rig::Exchange &exchange : exchanges)
                    exchange.reply.body =
                        withValue(exchange.reply.body, place, options.state.mid(sign + 1));
            };
            change(story.list);
            change(others);
            return;
        }
    }

    // What goes well comes first, then what begins like the sample and stays in the state, then
    // what tells it soonest, then what is short.
    const auto rank = [&](const Exchanges &told) {
        const bool beginsAlike =
            !told.list.isEmpty() && !stories[sample].list.isEmpty()
            && verbOf(told.list.first()) == verbOf(stories[sample].list.first());
        return std::tuple(refusalsIn(told.list), !beginsAlike, !staysAt(told.list, options.state),
                          stepThatTells(told.list, options.state), told.list.size());
    };
    const Exchanges *best = nullptr;
    for (const Exchanges &told : std::as_const(stories)) {
        if (isPlain(told.list) && stepThatTells(told.list, options.state) >= 0
            && (!best || rank(told) < rank(*best)))
            best = &told;
    }
    if (best) {
        story = *best;
        return;
    }
    QStringList known;
    for (auto place = states.cbegin(); place != states.cend(); ++place) {
        QStringList values(place->cbegin(), place->cend());
        values.sort();
        // What is the same in every answer is no state.
        if (values.size() > 1)
            known.append(place.key() + u": "_s + values.join(u' '));
    }
    throw UsageError(say(u"Ни в одном сценарии типа %1 нет состояния '%2'. Известны:\n    %3"_s,
                         u"No scenario of type %1 has the state '%2'. Known states:\n    %3"_s)
                         .arg(options.type, options.state, known.join(u"\n    "_s)));
}

void TypeStand::start()
{
    QObject::connect(&peer, &rig::ScriptedPeer::exchanged, &peer,
                     [this](const rig::Traffic &traffic) { show(traffic); });
    peer.playFreely(story.kind, story.greeting,
                    [this](const rig::ArrivedRequest &request) { return choose(request); });
    showPlan();
    if (!options.failure)
        return;
    peer.fail(*options.failure);
    if (options.failingSeconds > 0) {
        QTimer::singleShot(std::chrono::seconds(options.failingSeconds), &peer, [this] {
            peer.recover();
            print(say(u"Сбой окончен"_s, u"The failure is over"_s));
        });
    }
}

int TypeStand::stepOf(const rig::ArrivedRequest &request) const
{
    int best = -1;
    double highest = 0;
    for (qsizetype index = 0; index < story.list.size(); ++index) {
        const rig::Exchange &exchange = story.list[index];
        if (verbOf(exchange) != request.verb)
            continue;
        double score = 1;
        if (index == next)
            score += 3;
        if (index == 0)
            score += 1;
        if (lastPartOf(exchange.request) == lastPartOf(request.target))
            score += 4;
        score += 4 * likeness(bodyOf(exchange), request.body);
        // A request that comes once more is the same step of another attempt, unless the scenario
        // itself has it more than once.
        for (qsizetype other = 0; other < met.size(); ++other) {
            if (met[other] == identityOf(request) && story.list[other].request == exchange.request)
                score += 5;
        }
        if (best < 0 || score > highest) {
            best = static_cast<int>(index);
            highest = score;
        }
    }
    return best;
}

rig::Reply TypeStand::choose(const rig::ArrivedRequest &request)
{
    step = stepOf(request);
    rig::Reply reply;
    if (step >= 0) {
        reply = story.list[step].reply;
        met[step] = identityOf(request);
        next = (step + 1) % static_cast<int>(story.list.size());
    } else {
        // As some other scenario of the type has it, and without one a success.
        for (const rig::Exchange &exchange : std::as_const(others)) {
            if (verbOf(exchange) == request.verb && exchange.reply.status < 300) {
                reply = exchange.reply;
                break;
            }
        }
    }
    if (options.status) {
        reply = rig::Reply();
        reply.status = *options.status;
    }
    if (options.answer)
        reply.body = *options.answer;
    // Nobody is there to release it, and who waits is a person.
    reply.held = false;
    reply.delaySeconds = 0;
    return reply;
}

void TypeStand::showPlan() const
{
    print(say(u"Стенд имитирует службу типа %1 по адресу %2, сценарий: %3"_s,
              u"The stand plays the service of type %1 at %2, scenario: %3"_s)
              .arg(options.type, rig::ScriptedPeer::address(story.kind, peer.port()), story.title));
    for (qsizetype index = 0; index < story.list.size(); ++index) {
        const rig::Exchange &exchange = story.list[index];
        QString line = u"  %1. "_s.arg(index + 1);
        if (story.kind == rig::PeerScript::Kind::Tcp)
            line += rig::shortened(exchange.body.toString());
        else
            line += u"%1 -> %2 %3"_s.arg(exchange.request, QString::number(exchange.reply.status),
                                         rig::shortened(QString::fromUtf8(exchange.reply.body)));
        print(line);
    }
    print(say(u"Адреса и тела в строках могут быть любыми. Завершить: Ctrl+C"_s,
              u"The rows may have any addresses and bodies. Ctrl+C ends it"_s));
}

void TypeStand::show(const rig::Traffic &traffic) const
{
    QString line = QTime::currentTime().toString(u"HH:mm:ss"_s) + u"  "_s;
    if (story.kind == rig::PeerScript::Kind::Tcp) {
        line += u"TCP"_s;
    } else {
        line += u"%1 %2 -> "_s.arg(traffic.request.verb, traffic.request.target);
        if (traffic.isFailure)
            line += coloured(say(u"сбой"_s, u"failure"_s), false);
        else if (step < 0)
            line += say(u"нет в сценарии, %1"_s, u"not in the scenario, %1"_s).arg(traffic.status);
        else
            line += say(u"шаг %1 из %2, %3"_s, u"step %1 of %2, %3"_s)
                        .arg(step + 1)
                        .arg(story.list.size())
                        .arg(traffic.status);
    }
    print(line);
    if (const QString text = quoted(traffic); !text.isEmpty())
        print(text);
}

} // namespace stand
