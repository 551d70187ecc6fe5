#pragma once

#include <QString>

#include <stdexcept>

namespace rig {

/// Something that cannot be set up or started. The text says what and why.
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
