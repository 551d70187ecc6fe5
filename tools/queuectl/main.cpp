#include "shared/core/logging.h"
#include "tools/queuectl/queuectl.h"
#include "tools/queuectl/text.h"

#include <QCoreApplication>

/// The queue of a till, for the engineer beside it.
int main(int argc, char **argv)
{
    // Before the encoding is settled, which may replace a locale that the till has not installed.
    queuectl::isRussian();
    useUtf8Locale();
    QCoreApplication application(argc, argv);
    return queuectl::run(QCoreApplication::arguments().mid(1));
}
