#pragma once

#include <QString>

#include <stdexcept>

namespace rig {

/// A failure to set up or start something. The text says what failed and why.
class Error : public std::runtime_error
{
public:
    explicit Error(const QString &text)
        : std::runtime_error(text.toStdString())
    {
    }
    QString text() const { return QString::fromUtf8(what()); }
};

} // namespace rig
