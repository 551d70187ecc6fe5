#include "rig/waiting.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

namespace rig {

std::chrono::seconds patience()
{
    bool isNumber = false;
    const int seconds = qEnvironmentVariableIntValue("STAND_PATIENCE", &isNumber);
    return std::chrono::seconds(isNumber ? seconds : 60);
}

bool waitUntil(const std::function<bool()> &condition)
{
    const QDeadlineTimer deadline(patience());
    QTimer wake;
    wake.start(100); // for the deadline, and for conditions without an event
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace rig
