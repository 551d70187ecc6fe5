#include "tools/messagetypes/stories.h"

#include "tools/stand/scenariofile.h"

#include <QJsonDocument>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;
using catalogue::fits;

namespace stories {

namespace {

void addMessage(Story &story, const stand::QueuedMessage &message, const QString &type)
{
    if (message.type != type)
        return;
    story.outcomes.append(message.outcome);
    const QJsonDocument body = QJsonDocument::fromJson(message.body.toUtf8());
    if (body.isObject())
        story.bodies.append(body.object());
}

bool fitsOneOf(const QStringList &patterns, const QString &text)
{
    return std::ranges::any_of(patterns,
                               [&text](const QString &pattern) { return fits(pattern, text); });
}

QString shown(const stand::Outcome &told)
{
    if (!told.recorded)
        return told.fate == stand::Outcome::Fate::Kept ? u"waiting"_s : u"removed"_s;
    QStringList parts{told.recorded->verdict};
    if (told.recorded->kind)
        parts.append(*told.recorded->kind);
    if (told.recorded->reason)
        parts.append(*told.recorded->reason);
    return parts.join(u", "_s);
}

/// The rows of one type, each with the stories that are listed with it.
class Comparison
{
public:
    Comparison(const catalogue::Type &type, const QString &scenarios)
        : type(type)
        , scenarios(scenarios)
        , own(storiesOf(type, scenarios))
    {
    }

    QStringList gaps();

private:
    QList<Story> listedStories(const QString &pattern) const;
    void checkRow(const catalogue::Outcome &row);
    void checkStory(const Story &story);
    void note(const QString &gap) { found.append(u"%1: %2"_s.arg(type.name, gap)); }

    const catalogue::Type &type;
    const QString scenarios;
    const QList<Story> own;
    QStringList found;
};

QList<Story> Comparison::listedStories(const QString &pattern) const
{
    // For a type that shares its handler, a case may be in the scenarios of the other type.
    const qsizetype border = pattern.indexOf(u".json: "_s);
    const catalogue::Type *other = border > 0 ? catalogue::find(pattern.left(border)) : nullptr;
    const bool isOfGroup = other && other->group == type.group;
    const QList<Story> candidates = isOfGroup ? storiesOf(*other, scenarios) : own;
    const QString name = isOfGroup ? pattern.mid(border + 7) : pattern;
    QList<Story> listed;
    std::ranges::copy_if(candidates, std::back_inserter(listed),
                         [&name](const Story &story) { return fits(name, story.name); });
    return listed;
}

void Comparison::checkRow(const catalogue::Outcome &row)
{
    QSet<QString> reasons(row.reasons.begin(), row.reasons.end());
    bool isAsserted = false;
    for (const QString &pattern : row.scenarios) {
        const QList<Story> listed = listedStories(pattern);
        if (listed.isEmpty() && !row.isShared)
            note(u"no scenario '%1'"_s.arg(pattern));
        for (const Story &story : listed) {
            bool isShown = row.verdict == u"kept" && story.hasSteps;
            for (const stand::Outcome &told : story.outcomes) {
                if (!asserts(told, row))
                    continue;
                isShown = isAsserted = true;
                reasons.removeIf([&told](const QString &reason) {
                    return fits(reason, *told.recorded->reason);
                });
            }
            if (!isShown)
                note(u"'%1' does not show: %2 (%3)"_s.arg(story.name, row.when, row.verdict));
        }
    }
    if (!isAsserted)
        note(u"no scenario asserts: %1 (%2)"_s.arg(row.when, row.verdict));
    else if (!reasons.isEmpty())
        note(u"no scenario asserts the reason '%1'"_s.arg(*reasons.begin()));
}

void Comparison::checkStory(const Story &story)
{
    for (const stand::Outcome &told : story.outcomes) {
        const bool isRow = std::ranges::any_of(type.outcomes, [&](const catalogue::Outcome &row) {
            return asserts(told, row) && fitsOneOf(row.scenarios, story.name);
        });
        if (!isRow)
            note(u"no outcome for '%1' (%2)"_s.arg(story.name, shown(told)));
    }
}

QStringList Comparison::gaps()
{
    if (own.isEmpty())
        note(u"there are no scenarios"_s);
    for (const catalogue::Outcome &row : type.outcomes)
        checkRow(row);
    for (const Story &story : own)
        checkStory(story);
    return found;
}

} // namespace

QList<Story> storiesOf(const catalogue::Type &type, const QString &scenarios)
{
    QList<Story> stories;
    const QString path = u"%1/%2/%3.json"_s.arg(scenarios, type.group, type.name);
    const QList<stand::ScenarioSource> sources = stand::loadScenarios(path);
    for (const stand::ScenarioSource &source : sources) {
        stand::Places places;
        const QStringList names = stand::placeNames(source.peers());
        for (const QString &name : names)
            places.insert(name, name.endsWith(u".port") ? u"8080"_s : u"http://127.0.0.1:8080"_s);
        places.insert(u"root"_s, u"/till"_s);
        const stand::Scenario scenario = source.scenario(places);
        Story story{scenario.name, !scenario.steps.isEmpty(), {}, {}};
        for (const stand::QueuedMessage &message : scenario.messages)
            addMessage(story, message, type.name);
        for (const stand::Step &step : scenario.steps) {
            if (step.kind == stand::Step::Kind::Put)
                addMessage(story, step.message, type.name);
        }
        stories.append(story);
    }
    return stories;
}

bool asserts(const stand::Outcome &told, const catalogue::Outcome &row)
{
    const bool isKept = row.verdict == u"kept";
    if (isKept && row.kinds.isEmpty())
        return told.fate == stand::Outcome::Fate::Kept && !told.recorded;
    if (!told.recorded || told.recorded->verdict != row.verdict)
        return false;
    const std::optional<QString> &kind = told.recorded->kind;
    const std::optional<QString> &reason = told.recorded->reason;
    if (isKept && !(kind && row.kinds.contains(*kind)))
        return false;
    // A kept message has the error of the exchange as its reason, where its handler gives none.
    if (row.reasons.isEmpty())
        return isKept || !reason;
    return reason && fitsOneOf(row.reasons, *reason);
}

QStringList gaps(const catalogue::Type &type, const QString &scenarios)
{
    return Comparison(type, scenarios).gaps();
}

} // namespace stories
