#include "tests/tools/queuectl/watch/terminalprogram.h"

#include "rig/waiting.h"

#include <algorithm>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

winsize sizeOf(int columns, int rows)
{
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = static_cast<unsigned short>(rows);
    return size;
}

} // namespace

TerminalProgram::TerminalProgram(const QString &program, const QStringList &arguments,
                                 const QProcessEnvironment &environment, int columns, int rows,
                                 Hangup hangup)
    : grid(columns, rows)
{
    const winsize size = sizeOf(columns, rows);
    if (::openpty(&master, &slave, nullptr, nullptr, &size) != 0)
        qFatal("no terminal can be made");
    ::fcntl(master, F_SETFL, O_NONBLOCK);
    ::fcntl(master, F_SETFD, FD_CLOEXEC);
    ::fcntl(slave, F_SETFD, FD_CLOEXEC);
    formerMode = mode();
    process.setProcessEnvironment(environment);
    process.setChildProcessModifier([this, hangup] {
        ::setsid();
        ::ioctl(slave, TIOCSCTTY, 0);
        for (const int channel : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(slave, channel);
        if (hangup == Hangup::Ignored)
            ::signal(SIGHUP, SIG_IGN);
    });
    process.start(program, arguments);
    if (!process.waitForStarted())
        qFatal("%s: %s", qPrintable(program), qPrintable(process.errorString()));
}

TerminalProgram::~TerminalProgram()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    hangUp();
    ::close(slave);
}

void TerminalProgram::type(const QByteArray &keys)
{
    if (::write(master, keys.constData(), static_cast<std::size_t>(keys.size())) != keys.size())
        qFatal("the terminal takes no input");
}

void TerminalProgram::resize(int columns, int rows)
{
    read();
    former.clear();
    grid = TerminalGrid(columns, rows);
    grid.write("\033[?1049h");
    const winsize size = sizeOf(columns, rows);
    ::ioctl(master, TIOCSWINSZ, &size);
}

void TerminalProgram::hangUp()
{
    read();
    if (master >= 0)
        ::close(master);
    master = -1;
}

void TerminalProgram::signal(int number) const
{
    ::kill(static_cast<pid_t>(process.processId()), number);
}

const TerminalGrid &TerminalProgram::screen()
{
    read();
    return grid;
}

QByteArray TerminalProgram::bytes()
{
    read();
    return received;
}

bool TerminalProgram::shows(const QString &wanted)
{
    const bool isThere = waitFor([&] {
        return grid.text().contains(wanted)
               || std::any_of(former.cbegin(), former.cend(),
                              [&wanted](const QString &screen) { return screen.contains(wanted); });
    });
    former.clear();
    if (!isThere)
        qWarning("not shown: %s, but\n%s", qPrintable(wanted), qPrintable(grid.text()));
    return isThere;
}

bool TerminalProgram::waitFor(const std::function<bool()> &condition)
{
    return rig::waitUntil([&] {
        read();
        return condition();
    });
}

bool TerminalProgram::hasEnded()
{
    return waitFor([this] { return process.state() == QProcess::NotRunning; });
}

int TerminalProgram::endSignal() const
{
    // Of a process that was ended by a signal, QProcess has its number in the place of the code.
    return process.exitStatus() == QProcess::CrashExit ? process.exitCode() : 0;
}

bool TerminalProgram::isRestored()
{
    read();
    const termios now = mode();
    return now.c_lflag == formerMode.c_lflag && now.c_iflag == formerMode.c_iflag
           && now.c_oflag == formerMode.c_oflag
           && std::memcmp(now.c_cc, formerMode.c_cc, sizeof now.c_cc) == 0 && !grid.isAlternate()
           && grid.isCursorShown() && grid.isWrapping();
}

void TerminalProgram::read()
{
    char buffer[4096];
    ssize_t count = 0;
    while (master >= 0 && !isStalled && (count = ::read(master, buffer, sizeof buffer)) > 0) {
        const QByteArray bytes(buffer, count);
        received.append(bytes);
        // The first line has the time, with which each new screen begins.
        const QByteArray beginning = "\033[1;";
        qsizetype at = 0;
        while (at < bytes.size()) {
            former.append(grid.text());
            qsizetype next = bytes.indexOf(beginning, at + 1);
            if (next < 0)
                next = bytes.size();
            grid.write(bytes.mid(at, next - at));
            at = next;
        }
    }
}

termios TerminalProgram::mode() const
{
    termios mode{};
    ::tcgetattr(slave, &mode);
    return mode;
}
