#include "rig/waiting.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

namespace rig {

bool waitUntil(const std::function<bool()> &condition)
{
    bool isNumber = false;
    int seconds = qEnvironmentVariableIntValue("STAND_PATIENCE", &isNumber);
    if (!isNumber)
        seconds = 60;
    const QDeadlineTimer deadline(seconds * 1000LL);
    QTimer wake;
    wake.start(100); // for the deadline, and for what tells nobody when it changes
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace rig
