#pragma once

#include "rig/peerscript.h"
#include "tools/stand/scenario.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

namespace stand {

/// The scenario that a JSON object tells, its places filled in. `where` is the object's place for
/// complaints. Throws ScenarioError.
Scenario readScenario(const QJsonObject &content, const QString &where, const QString &title);

/// Only names and kinds of the peers. Throws ScenarioError.
QList<rig::PeerScript> readPeerKinds(const QJsonObject &content, const QString &where);

/// `patch` put over `base`: objects are merged member by member, null takes a member away, anything
/// else replaces.
QJsonValue merged(const QJsonValue &base, const QJsonValue &patch);

} // namespace stand
