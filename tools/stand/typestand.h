#pragma once

#include "rig/scriptedpeer.h"
#include "tools/stand/scenariofile.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>

namespace stand {

/// What a caller may choose for the service of one type.
struct TypeOptions
{
    QString type = {};
    quint16 port = 0;
    /// The state that the service tells. `DECLINED` plays the scenario that tells it in place of
    /// the sample; `refundStatus=DECLINED` has every answer that has this place tell it.
    QString state = {};
    /// The status of every answer, with an empty body unless `answer` gives one.
    std::optional<int> status = {};
    /// The body of every answer.
    std::optional<QByteArray> answer = {};
    /// Played for `failingSeconds`, or all the time when that is 0.
    std::optional<rig::Failure> failure = {};
    int failingSeconds = 0;
};

/// Plays the outside service of one message type on a port of 127.0.0.1 for rows of the caller's
/// own: whatever their addresses and bodies are, each request is answered as the scenario's
/// exchange that it matches. Which one that is, is told from the verb, the order, and what else the
/// request has in common with it. All operations throw ScenarioError. Thread: the one that has the
/// application's event loop.
class TypeStand
{
public:
    TypeStand(const QString &scenarios, const TypeOptions &options);
    ~TypeStand();

    /// Listens, and prints what is played and everything that arrives, as long as the event loop
    /// runs.
    void start();
    quint16 port() const;

private:
    struct Exchanges
    {
        QList<rig::Exchange> list;
        rig::PeerScript::Kind kind = rig::PeerScript::Kind::Http;
        QByteArray greeting;
        QString title;
    };

    Exchanges exchangesOf(const ScenarioSource &source) const;
    void chooseStory(const QList<ScenarioSource> &sources);
    rig::Reply choose(const rig::ArrivedRequest &request);
    int stepOf(const rig::ArrivedRequest &request) const;
    void showPlan() const;
    void show(const rig::Traffic &traffic) const;

    TypeOptions options;
    rig::ScriptedPeer peer;
    Exchanges story;
    /// Those of the type's other scenarios, for requests that the story does not have.
    QList<rig::Exchange> others;
    /// The values that the answers of all scenarios have by the place in the body.
    QMap<QString, QSet<QString>> states;
    /// The request that each step was last met with.
    QList<QByteArray> met;
    int next = 0;
    /// Of the request in hand; -1: one that the story does not have.
    int step = -1;
};

} // namespace stand
