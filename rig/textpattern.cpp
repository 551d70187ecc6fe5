#include "rig/textpattern.h"

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// The regular expression of a pattern; empty for an unknown name.
QString patternOf(const QString &name, const QString &argument)
{
    if (name == u"any")
        return u".*"_s;
    if (name == u"digits")
        return u"[0-9]+"_s;
    if (name == u"uuid")
        return u"[0-9a-fA-F]{8}-(?:[0-9a-fA-F]{4}-){3}[0-9a-fA-F]{12}"_s;
    if (name == u"datetime")
        return u"\\d{4}-\\d\\d-\\d\\d[T ]\\d\\d:\\d\\d:\\d\\d[.,0-9]*(?:Z|[+-]\\d\\d:?\\d\\d)?"_s;
    if (name == u"match")
        return argument;
    return {};
}

} // namespace

const QRegularExpression &TextPattern::placeholder()
{
    static const QRegularExpression expression(u"\\{\\{([a-z][A-Za-z0-9.]*)(?::(.*?))?\\}\\}"_s);
    return expression;
}

bool TextPattern::isPattern(const QString &name, const QString &argument)
{
    return !patternOf(name, argument).isEmpty();
}

TextPattern::TextPattern(const QString &text)
{
    QString expression;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = placeholder().globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString pattern = patternOf(match.captured(1), match.captured(2));
        if (pattern.isEmpty())
            continue;
        expression += QRegularExpression::escape(text.mid(end, match.capturedStart() - end));
        expression += u"(?:%1)"_s.arg(pattern);
        end = match.capturedEnd();
        isPlain = false;
    }
    plain = text;
    if (isPlain)
        return;
    expression += QRegularExpression::escape(text.mid(end));
    const auto options = QRegularExpression::DotMatchesEverythingOption;
    whole = QRegularExpression(u"\\A(?:%1)\\z"_s.arg(expression), options);
    part = QRegularExpression(expression, options);
}

bool TextPattern::matches(const QString &candidate) const
{
    return isPlain ? candidate == plain : whole.match(candidate).hasMatch();
}

bool TextPattern::occursIn(const QString &candidate) const
{
    return isPlain ? candidate.contains(plain) : part.match(candidate).hasMatch();
}

} // namespace rig
