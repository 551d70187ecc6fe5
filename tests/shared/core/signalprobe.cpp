// Runs an event loop as its arguments say and prints what a signal did.

#include "shared/core/signalhandler.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList options = application.arguments().mid(1);

    signalhandler::initSignalHandlers();
    if (options.contains(u"unchecked"))
        signalhandler::setNeedCheckExitCode(false);
    if (!options.contains(u"nohandler"))
        signalhandler::setAddittionalHandler([] {
            const bool isMain = QThread::currentThread() == QCoreApplication::instance()->thread();
            std::puts(isMain ? "handler on the main thread" : "handler elsewhere");
        });
    if (options.contains(u"takenback"))
        signalhandler::setAddittionalHandler({});
    if (options.contains(u"early"))
        raise(SIGTERM);
    if (options.contains(u"pipe"))
        raise(SIGPIPE);
    if (options.contains(u"thread"))
        std::thread([] { raise(SIGTERM); }).join();

    // After the start of the loop, the parent may send its signal.
    QTimer::singleShot(0, [] {
        std::puts("ready");
        std::fflush(stdout);
    });
    const int code = QCoreApplication::exec();
    std::printf("loop ended with %d\n", code);
    return code;
}
