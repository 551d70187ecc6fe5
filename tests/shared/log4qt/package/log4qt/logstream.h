#pragma once

#include <QTextStream>

namespace Log4Qt {

class LogStream
{
public:
    template <typename T>
    LogStream &operator<<(const T &)
    {
        return *this;
    }
};

} // namespace Log4Qt
