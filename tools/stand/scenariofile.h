#pragma once

#include "tools/stand/placeholders.h"
#include "tools/stand/scenario.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace stand {

/// A scenario from its file, with defaults, before a run sets its addresses.
class ScenarioSource
{
public:
    ScenarioSource(const QJsonObject &content, const QString &where, const QString &title);

    QString title() const;
    /// Whether the scenario is meant for `sqlite` or `mariadb`.
    bool isFor(const QString &database) const;
    bool isSample() const;
    /// The type of its first message.
    QString type() const;
    /// Names and kinds of the peers that a run must set up.
    QList<rig::PeerScript> peers() const;
    /// The scenario with its addresses filled in. Throws ScenarioError.
    Scenario scenario(const Places &places) const;

private:
    QJsonObject content;
    QString where;
    QString title_;
};

/// The names that a run must give addresses for: for each peer `name`, `name.host` and `name.port`,
/// and `root`, `nobody`, `nobody.port`.
QStringList placeNames(const QList<rig::PeerScript> &peers);

/// Reads a scenario file, or all files of a folder and the folders below it, in the order of their
/// names. Every scenario is checked in full. Throws ScenarioError.
QList<ScenarioSource> loadScenarios(const QString &path);

} // namespace stand
