#pragma once

#include <QHash>
#include <QJsonValue>
#include <QString>

namespace stand {

/// The values of a scenario's placeholders in one run: `http`, `http.port`, `root` and so on.
using Places = QHash<QString, QString>;

/// Puts the places into every text of a JSON value. Patterns such as `{{any}}` stay for
/// rig::TextPattern. `{{fill:1000}}` becomes a text of a thousand letters. Throws ScenarioError for
/// a placeholder that is neither; `where` says in which file.
QJsonValue expanded(const QJsonValue &value, const Places &places, const QString &where);
QString expanded(const QString &text, const Places &places, const QString &where);

} // namespace stand
