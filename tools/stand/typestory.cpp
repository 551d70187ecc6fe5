#include "tools/stand/typestory.h"

#include "rig/scriptedpeer.h"
#include "tools/stand/bodyvalues.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/screen.h"

#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <tuple>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

/// The values in the answers, by their place in the body.
using States = QMap<QString, QSet<QString>>;

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
        const QList<BodyValue> values = valuesIn(exchanges[index].reply.body);
        if (std::any_of(values.begin(), values.end(),
                        [&](const BodyValue &entry) { return entry.value == state; }))
            return index;
    }
    return -1;
}

/// Whether the answers tell the state last at some place, and not another one after it.
bool staysAt(const QList<rig::Exchange> &exchanges, const QString &state)
{
    QMap<QString, QString> last;
    for (const rig::Exchange &exchange : exchanges) {
        const QList<BodyValue> values = valuesIn(exchange.reply.body);
        for (const auto &[place, value] : values)
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

/// A word that a service may call a state: short, and no text for people.
bool isWord(const QString &value)
{
    static const QRegularExpression word(u"\\A[\\w-]{1,24}\\z"_s);
    return word.match(value).hasMatch();
}

TypeStory storyOf(const ScenarioSource &source, quint16 port)
{
    // All services of the scenario are this one.
    const QString number = QString::number(port);
    Places places{
        {u"root"_s, u"/"_s}, {u"nobody"_s, u"http://127.0.0.1:9"_s}, {u"nobody.port"_s, u"9"_s}};
    const QList<rig::PeerScript> scripts = source.peers();
    for (const rig::PeerScript &script : scripts) {
        const auto kind = script.kind == rig::PeerScript::Kind::Tcp ? rig::PeerScript::Kind::Tcp
                                                                    : rig::PeerScript::Kind::Http;
        places.insert(script.name, rig::ScriptedPeer::address(kind, port));
        places.insert(script.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(script.name + u".port"_s, number);
    }
    const Scenario scenario = source.scenario(places);
    TypeStory result;
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

States statesIn(const QList<rig::Exchange> &exchanges)
{
    States result;
    for (const rig::Exchange &exchange : exchanges) {
        const QList<BodyValue> values = valuesIn(exchange.reply.body);
        for (const auto &[place, value] : values) {
            if (isWord(value))
                result[place].insert(value);
        }
    }
    return result;
}

void setInAnswers(QList<rig::Exchange> &exchanges, const QString &place, const QString &value)
{
    for (rig::Exchange &exchange : exchanges)
        exchange.reply.body = withValue(exchange.reply.body, place, value);
}

/// The scenario that reports the state and has only plain answers; null: none.
const TypeStory *storyWith(const QString &state, const QList<TypeStory> &stories,
                           const TypeStory &sample)
{
    // What goes well comes first, then what begins like the sample and stays in the state, then
    // what tells it soonest, then what is short.
    const auto rank = [&](const TypeStory &told) {
        const bool beginsAlike = !told.list.isEmpty() && !sample.list.isEmpty()
                                 && verbOf(told.list.first()) == verbOf(sample.list.first());
        return std::tuple(refusalsIn(told.list), !beginsAlike, !staysAt(told.list, state),
                          stepThatTells(told.list, state), told.list.size());
    };
    const TypeStory *best = nullptr;
    for (const TypeStory &told : stories) {
        if (isPlain(told.list) && stepThatTells(told.list, state) >= 0
            && (!best || rank(told) < rank(*best)))
            best = &told;
    }
    return best;
}

UsageError unknownState(const QString &type, const QString &state, const States &states)
{
    QStringList known;
    for (auto place = states.cbegin(); place != states.cend(); ++place) {
        QStringList values(place->cbegin(), place->cend());
        values.sort();
        // What is the same in every answer is no state.
        if (values.size() > 1)
            known.append(place.key() + u": "_s + values.join(u' '));
    }
    return UsageError(say(u"Ни в одном сценарии типа %1 нет состояния '%2'. Известны:\n    %3"_s,
                          u"No scenario of type %1 has the state '%2'. Known states:\n    %3"_s)
                          .arg(type, state, known.join(u"\n    "_s)));
}

} // namespace

QString verbOf(const rig::Exchange &exchange)
{
    return exchange.request.section(u' ', 0, 0);
}

TypeStory chooseStory(QList<ScenarioSource> sources, const QString &type, const QString &state,
                      quint16 port)
{
    sources.removeIf([&](const ScenarioSource &source) { return source.type() != type; });
    if (std::none_of(sources.begin(), sources.end(),
                     [](const ScenarioSource &source) { return source.isSample(); }))
        throw UsageError(say(u"Нет образца типа '%1'; --list показывает все"_s,
                             u"There is no sample of type '%1'; --list shows them all"_s)
                             .arg(type));

    QList<TypeStory> stories;
    qsizetype sample = 0;
    for (const ScenarioSource &source : std::as_const(sources)) {
        if (source.isSample() && !stories.isEmpty() && sample == 0)
            sample = stories.size();
        stories.append(storyOf(source, port));
    }
    QList<rig::Exchange> others;
    for (const TypeStory &told : std::as_const(stories)) {
        std::copy_if(told.list.begin(), told.list.end(), std::back_inserter(others),
                     [](const rig::Exchange &exchange) { return isPlain(exchange.reply); });
    }
    const States states = statesIn(others);

    TypeStory story = stories[sample];
    const qsizetype sign = state.indexOf(u'=');
    if (sign > 0 && states.contains(state.left(sign))) {
        setInAnswers(story.list, state.left(sign), state.mid(sign + 1));
        setInAnswers(others, state.left(sign), state.mid(sign + 1));
    } else if (!state.isEmpty()) {
        const TypeStory *const told = storyWith(state, stories, stories[sample]);
        if (!told)
            throw unknownState(type, state, states);
        story = *told;
    }
    story.others = others;
    return story;
}

} // namespace stand
