#include "tools/queuectl/watch/terminalscreen.h"

#include "tools/queuectl/failure.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace queuectl {

namespace {

constexpr int usualRows = 24;
/// Alternate screen, no cursor, no new line at the right edge: a letter that a terminal draws wider
/// than expected must not move the lines below.
const QByteArray enterBytes = "\033[?1049h\033[?25l\033[?7l";
/// A terminal without an alternate screen is left empty.
const QByteArray leaveBytes = "\033[0m\033[H\033[2J\033[?7h\033[?25h\033[?1049l";

/// Standard output opened once more, for writing without waiting: the flag belongs to an open file,
/// and the shell has the same one. -1 when this account may not open it.
int openOwnOutput()
{
    unsigned int device = 0;
    if (::ioctl(STDOUT_FILENO, TIOCGDEV, &device) != 0)
        return -1;
    for (const char *path : {"/proc/self/fd/1", "/dev/tty"}) {
        const int file = ::open(path, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        unsigned int opened = 0;
        if (file >= 0 && ::ioctl(file, TIOCGDEV, &opened) == 0 && opened == device)
            return file;
        if (file >= 0)
            ::close(file);
    }
    return -1;
}

winsize sizeOf(int terminal)
{
    winsize size{};
    ::ioctl(terminal, TIOCGWINSZ, &size);
    return size;
}

} // namespace

TerminalScreen::TerminalScreen()
{
    if (!isTerminal())
        throw Failure(Usage,
                      text("Standard output is not a terminal; queuectl watch --json or --count N "
                           "writes to a file or a pipe",
                           "Стандартный вывод — не терминал; в файл или канал пишет queuectl watch "
                           "--json или --count N"));
    if (!canPlaceCursor())
        throw Failure(
            Usage, text("The terminal (TERM=%1) cannot place its cursor; queuectl watch --json or "
                        "--count N does without",
                        "Терминал (TERM=%1) не умеет перемещать курсор; queuectl watch --json или "
                        "--count N обойдётся без этого")
                       .arg(qEnvironmentVariable("TERM")));
    output = openOwnOutput();
    ownsOutput = output >= 0;
    if (!ownsOutput)
        output = STDOUT_FILENO;
    if (::isatty(STDIN_FILENO) == 1)
        keys = STDIN_FILENO;
}

TerminalScreen::~TerminalScreen()
{
    leave();
    if (ownsOutput)
        ::close(output);
}

void TerminalScreen::enter()
{
    // The shell may have changed the mode while this process was stopped.
    if (keys >= 0 && ::tcgetattr(keys, &formerMode) == 0) {
        termios mode = formerMode;
        mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        mode.c_cc[VMIN] = 1;
        mode.c_cc[VTIME] = 0;
        ::tcsetattr(keys, TCSANOW, &mode);
    }
    isEntered = true;
    shown = {};
    wanted = {};
    pending.clear();
    write(enterBytes);
}

void TerminalScreen::leave(std::chrono::milliseconds patience)
{
    if (!isEntered)
        return;
    isEntered = false;
    // Half an escape sequence may be on its way already.
    write(leaveBytes);
    pollfd way{output, POLLOUT, 0};
    while (isWaiting() && !lost && ::poll(&way, 1, static_cast<int>(patience.count())) > 0)
        flush();
    pending.clear();
    if (keys >= 0)
        ::tcsetattr(keys, TCSANOW, &formerMode);
}

int TerminalScreen::columns() const
{
    const int columns = sizeOf(output).ws_col;
    return columns > 0 ? columns : usualColumns;
}

int TerminalScreen::rows() const
{
    const int rows = sizeOf(output).ws_row;
    return rows > 0 ? rows : usualRows;
}

void TerminalScreen::show(const Screen &screen)
{
    wanted = screen;
    if (isWaiting())
        return;
    const QByteArray bytes = screenUpdate(shown, wanted, hasColours());
    shown = wanted;
    if (!bytes.isEmpty())
        write(bytes);
}

void TerminalScreen::flush()
{
    while (isWaiting()) {
        const ssize_t count =
            ::write(output, pending.constData(), static_cast<std::size_t>(pending.size()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return;
        if (count < 0) {
            lost = true;
            pending.clear();
            return;
        }
        pending.remove(0, count);
    }
    if (isEntered)
        show(wanted);
}

void TerminalScreen::write(const QByteArray &bytes)
{
    pending += bytes;
    flush();
}

} // namespace queuectl
