#include "shared/core/logging.h"
#include "tools/queuectl/queuectl.h"
#include "tools/queuectl/text.h"

#include <QCoreApplication>

/// `queuectl`: the engineer's program for the queue of a till.
int main(int argc, char **argv)
{
    // Read before Qt sets the encoding, which may replace a locale that is not installed.
    queuectl::isRussian();
    useUtf8Locale();
    QCoreApplication application(argc, argv);
    return queuectl::run(QCoreApplication::arguments().mid(1));
}
