#pragma once

#include "rig/peerscript.h"
#include "tools/stand/scenario.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

namespace stand {

/// The scenario in a JSON object, with its addresses filled in. `where` is the object's place for
/// error messages. Throws ScenarioError.
Scenario readScenario(const QJsonObject &content, const QString &where, const QString &title);

/// Only names and kinds of the peers. Throws ScenarioError.
QList<rig::PeerScript> readPeerKinds(const QJsonObject &content, const QString &where);

/// `patch` applied to `base`: objects are merged member by member, null removes a member, any other
/// value replaces.
QJsonValue merged(const QJsonValue &base, const QJsonValue &patch);

} // namespace stand
