#pragma once

#include "tools/stand/scenariofile.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace stand {

/// The exchanges that the stand plays as the service of one type.
struct TypeStory
{
    QString title;
    rig::PeerScript::Kind kind = rig::PeerScript::Kind::Http;
    QByteArray greeting;
    /// The steps, in their order.
    QList<rig::Exchange> list;
    /// The exchanges of all scenarios of the type, for requests that the steps do not have.
    QList<rig::Exchange> others;
};

/// The verb of the request that the exchange expects.
QString verbOf(const rig::Exchange &exchange);

/// Takes the type's sample, or with a state, as in TypeOptions, the scenario that has it. All
/// services of the scenario get the address of this port. `sources` are the scenarios of all types.
/// Throws UsageError for a type without a sample and for an unknown state, with the known ones.
TypeStory chooseStory(QList<ScenarioSource> sources, const QString &type, const QString &state,
                      quint16 port);

} // namespace stand
