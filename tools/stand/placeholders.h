#pragma once

#include <QHash>
#include <QJsonValue>
#include <QRegularExpression>
#include <QString>

namespace stand {

/// What the placeholders of a scenario stand for in one run: `http`, `http.port`, `root` and so on.
using Places = QHash<QString, QString>;

/// Puts the places into every text of a JSON value. Patterns such as `{{any}}` stay for TextPattern.
/// `{{fill:1000}}` becomes a text of a thousand letters. Throws ScenarioError for a placeholder that
/// is neither; `where` says in which file.
QJsonValue expanded(const QJsonValue &value, const Places &places, const QString &where);
QString expanded(const QString &text, const Places &places, const QString &where);

/// A text that is compared letter by letter but for the patterns in it: `{{any}}` (any text, an empty
/// one included), `{{digits}}`, `{{uuid}}`, `{{datetime}}` (as in 2026-01-31T12:00:00, with what may
/// follow), `{{match:...}}` (a regular expression of one's own).
class TextPattern
{
public:
    explicit TextPattern(const QString &text);

    bool matches(const QString &candidate) const;
    /// Whether the pattern occurs anywhere in the text.
    bool occursIn(const QString &candidate) const;

private:
    QString plain;
    bool isPlain = true;
    QRegularExpression whole;
    QRegularExpression part;
};

} // namespace stand
