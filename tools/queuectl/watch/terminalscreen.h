#pragma once

#include "tools/queuectl/watch/screen.h"

#include <QByteArray>

#include <chrono>

#include <termios.h>

namespace queuectl {

/// The terminal of standard output as a screen of its own: what was there before is back after
/// leave(). Keys arrive one by one on standard input, if that is a terminal too. Thread: one.
class TerminalScreen
{
public:
    /// Throws Failure (Usage) when standard output is not a terminal that can place its cursor.
    TerminalScreen();
    /// Leaves.
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen &) = delete;

    /// Goes to the alternate screen, and hides the cursor. The next show() writes everything.
    void enter();
    /// Puts everything back. Waits at most for `patience` for a terminal that takes nothing.
    void leave(std::chrono::milliseconds patience = std::chrono::milliseconds(500));

    int columns() const;
    int rows() const;

    /// Writes what differs from the screen that was shown before. While that is still on its way,
    /// the new one is kept, and the latest one is written when the way is free.
    void show(const Screen &screen);
    /// Whether something waits until outputHandle() takes more; then call flush().
    bool isWaiting() const { return !pending.isEmpty(); }
    void flush();
    /// The terminal is gone.
    bool isLost() const { return lost; }

    int outputHandle() const { return output; }
    /// -1 when standard input is not a terminal.
    int keysHandle() const { return keys; }

private:
    void write(const QByteArray &bytes);

    int output = -1;
    int keys = -1;
    bool ownsOutput = false;
    bool isEntered = false;
    bool lost = false;
    termios formerMode{};
    Screen shown;
    Screen wanted;
    QByteArray pending;
};

} // namespace queuectl
