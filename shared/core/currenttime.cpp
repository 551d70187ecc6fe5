#include "shared/core/currenttime.h"

CurrentTime::~CurrentTime() = default;

QDateTime CurrentTime::currentDateTime() const
{
    return QDateTime::currentDateTime();
}
