#include "shared/core/signalhandler.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace signalhandler {

namespace {

std::array<int, 2> pipeEnds{-1, -1};
bool needCheckExitCode = true;
std::function<void()> additionalHandler;

extern "C" void writeSignalToPipe(int number)
{
    const int savedErrno = errno;
    const auto byte = static_cast<unsigned char>(number);
    // If the pipe is full, it already contains a signal, so the result does not matter.
    [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &byte, 1);
    errno = savedErrno;
}

void endEventLoop()
{
    unsigned char number = 0;
    if (read(pipeEnds[0], &number, 1) != 1)
        return;
    if (additionalHandler)
        additionalHandler();
    QCoreApplication::exit(needCheckExitCode ? 128 + number : 0);
}

} // namespace

void initSignalHandlers()
{
    if (pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        qFatal("signalhandler: pipe2 failed: %s", strerror(errno));

    auto *notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, endEventLoop);

    struct sigaction action = {};
    action.sa_handler = writeSignalToPipe;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGTERM, SIGINT, SIGQUIT, SIGHUP})
        sigaction(number, &action, nullptr);

    // An early close by a peer is an error of that exchange; it must not end the service.
    signal(SIGPIPE, SIG_IGN);
}

void setNeedCheckExitCode(bool check)
{
    needCheckExitCode = check;
}

void setAddittionalHandler(std::function<void()> handler)
{
    additionalHandler = std::move(handler);
}

} // namespace signalhandler
