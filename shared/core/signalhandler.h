#pragma once

#include <functional>

/// Turns SIGTERM, SIGINT, SIGQUIT and SIGHUP into an event of the main thread, which calls the
/// registered function and then quits the event loop. The signal handler itself only writes to a
/// pipe.
namespace signalhandler {

/// Installs the handlers. Call once, on the main thread, after the QCoreApplication was built. A
/// signal that arrives before the event loop runs is handled when it does.
void initSignalHandlers();

/// Whether the exit code shows an end by signal: with true the event loop returns 128 plus the
/// signal's number, with false 0. True by default.
void setNeedCheckExitCode(bool check);

/// `handler` runs on the main thread when a signal has arrived, before the event loop ends. Each
/// signal calls the function that is registered at that time; an empty function removes the
/// registration.
void setAddittionalHandler(std::function<void()> handler);

} // namespace signalhandler
