#pragma once

#include "rig/scriptedpeer.h"
#include "tools/stand/typestory.h"

#include <QList>
#include <QString>

#include <optional>

namespace stand {

/// What a caller may choose for the service of one type.
struct TypeOptions
{
    QString type = {};
    quint16 port = 0;
    /// The state that the service reports. `DECLINED` plays the scenario with this state instead of
    /// the sample; `refundStatus=DECLINED` sets this member in every answer that has it.
    QString state = {};
    /// The status of every answer, with an empty body unless `answer` gives one.
    std::optional<int> status = {};
    /// The body of every answer.
    std::optional<QByteArray> answer = {};
    /// Lasts `failingSeconds`, or all the time when that is 0.
    std::optional<rig::Failure> failure = {};
    int failingSeconds = 0;
};

/// Plays the outside service of one message type on a port of 127.0.0.1 for the caller's rows.
/// Their addresses and bodies do not matter: each request gets the answer of the exchange in the
/// scenario that it matches best, by verb, order, path and keys of the body. All operations throw
/// ScenarioError. Thread: the one that has the application's event loop.
class TypeStand
{
public:
    TypeStand(const QString &scenarios, const TypeOptions &options);
    ~TypeStand();

    /// Listens and prints what it plays and what arrives, as long as the event loop runs.
    void start();
    quint16 port() const;

private:
    rig::Reply choose(const rig::ArrivedRequest &request);
    int stepOf(const rig::ArrivedRequest &request) const;
    void showPlan() const;
    void show(const rig::Traffic &traffic) const;

    TypeOptions options;
    rig::ScriptedPeer peer;
    TypeStory story;
    /// The last request for each step.
    QList<QByteArray> met;
    int next = 0;
    /// The step of the current request; -1: not in this scenario.
    int step = -1;
};

} // namespace stand
