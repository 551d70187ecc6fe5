#pragma once

#include <functional>

/// Turns SIGTERM, SIGINT, SIGQUIT and SIGHUP into one event of the main thread, which runs the
/// registered function and then quits the application's event loop. In the signal's own context
/// nothing but one write to a pipe happens.
namespace signalhandler {

/// Installs the handlers. Call once, on the main thread, after the QCoreApplication was built. A
/// signal that arrives before the event loop runs is kept for it.
void initSignalHandlers();

/// Whether an end by signal is a fault to whoever started the process: true makes the event loop
/// return 128 plus the signal's number, false 0. True by default.
void setNeedCheckExitCode(bool check);

/// `handler` runs on the main thread when a signal has arrived, before the event loop ends; for the
/// next signal, whichever is registered then. An empty function takes the registration back.
void setAddittionalHandler(std::function<void()> handler);

} // namespace signalhandler
