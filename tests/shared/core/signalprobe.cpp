// Runs an event loop as its arguments say and prints what a signal did.

#include "shared/core/signalhandler.h"
#include "tests/support/realfunction.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool nextReadFails = false;
/// How many files this process may have open.
rlimit files = {};

} // namespace

/// Replaces the C library's function in this process: a read can fail although a byte is there.
extern "C" ssize_t read(int file, void *buffer, size_t size)
{
    static const auto next = realFunction<ssize_t(int, void *, size_t)>("read");
    // Only the signal's number is one byte long.
    if (!nextReadFails || size != 1)
        return next(file, buffer, size);
    nextReadFails = false;
    std::puts("read failed");
    errno = EINTR;
    return -1;
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList options = application.arguments().mid(1);

    if (options.contains(u"nofiles")) {
        getrlimit(RLIMIT_NOFILE, &files);
        const rlimit none{0, files.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
            std::puts(qPrintable(text));
            std::fflush(stdout);
            setrlimit(RLIMIT_NOFILE, &files);
            if (type == QtFatalMsg)
                std::exit(3);
        });
    }
    if (options.contains(u"interrupted"))
        nextReadFails = true;

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
