#include "shared/core/logging.h"
#include "tools/queuectl/queuectl.h"

#include <QCoreApplication>

/// The queue of a till, for the engineer beside it.
int main(int argc, char **argv)
{
    useUtf8Locale();
    QCoreApplication application(argc, argv);
    return queuectl::run(QCoreApplication::arguments().mid(1));
}
