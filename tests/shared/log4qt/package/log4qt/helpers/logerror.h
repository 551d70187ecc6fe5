#pragma once

#include <QString>

namespace Log4Qt {

class LogError
{
public:
    explicit LogError(const QString &message, int code = 0);
};

} // namespace Log4Qt
