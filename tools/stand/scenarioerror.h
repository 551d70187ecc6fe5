#pragma once

#include <QString>

#include <stdexcept>

namespace stand {

/// A scenario file that cannot be used. The text names the file, the place in it and what is wrong.
class ScenarioError : public std::runtime_error
{
public:
    explicit ScenarioError(const QString &text)
        : std::runtime_error(text.toStdString())
    {
    }
    QString text() const { return QString::fromUtf8(what()); }
};

/// A wrong choice of whoever called the stand.
class UsageError : public ScenarioError
{
    using ScenarioError::ScenarioError;
};

} // namespace stand
