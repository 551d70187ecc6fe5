#pragma once

#include <QRegularExpression>
#include <QString>

namespace rig {

/// A text to compare literally except for its patterns: `{{any}}` (any text, even empty),
/// `{{digits}}`, `{{uuid}}`, `{{datetime}}` (as in 2026-01-31T12:00:00, with an optional suffix),
/// `{{match:...}}` (a regular expression).
class TextPattern
{
public:
    explicit TextPattern(const QString &text);

    bool matches(const QString &candidate) const;
    /// Whether the pattern occurs anywhere in the text.
    bool occursIn(const QString &candidate) const;

    /// Matches `{{name}}` or `{{name:argument}}`, pattern or not; captures name and argument.
    static const QRegularExpression &placeholder();
    /// Whether a placeholder with this name and argument is a pattern.
    static bool isPattern(const QString &name, const QString &argument);

private:
    QString plain;
    bool isPlain = true;
    QRegularExpression whole;
    QRegularExpression part;
};

} // namespace rig
