#pragma once

#include <QDateTime>

/// The clock. Made through MockFactory, so that a test can set it.
class CurrentTime
{
public:
    virtual ~CurrentTime();

    virtual QDateTime currentDateTime() const;
};
