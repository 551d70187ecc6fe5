#include "shared/core/guarded.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/watch/terminalscreen.h"
#include "tools/queuectl/watch/watchlines.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QSysInfo>
#include <QThread>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace queuectl {

namespace {

constexpr int usualIntervalSeconds = 2;
/// A look that takes longer is told, or the screen would pass for a current one.
constexpr auto longLook = 3000ms;
/// How long the end waits for a look.
constexpr auto endPatience = 200ms;
constexpr auto longestWait = std::chrono::hours(1);

/// Reads the values on a thread of its own, since that takes seconds where database or service do
/// not answer, and the keys must not wait for it.
class Reader
{
public:
    Reader();
    ~Reader();
    Reader(const Reader &) = delete;

    /// Begins a look; one at a time.
    void begin(const WatchValues &before);
    /// Readable when a look has ended.
    int handle() const { return ended; }
    /// What it has found.
    WatchValues take();
    /// False when a look keeps it beyond `patience`: the object must not be destroyed then.
    bool end(std::chrono::milliseconds patience);

private:
    void run();

    int ended = -1;
    QSemaphore wanted;
    std::atomic<bool> isEnding = false;
    Guarded<WatchValues> values;
    std::unique_ptr<QThread> thread;
};

Reader::Reader()
    : ended(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    , thread(QThread::create([this] { run(); }))
{
    if (ended < 0)
        throw Failure(Failed, text("The system has no file handles left",
                                   "В системе не осталось файловых дескрипторов"));
    thread->start();
}

Reader::~Reader()
{
    ::close(ended);
}

void Reader::run()
{
    while (true) {
        wanted.acquire();
        if (isEnding)
            return;
        WatchValues found = readWatchValues(values.copy());
        {
            const auto held = values.lock();
            *held = std::move(found);
        }
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(ended, &one, sizeof one);
    }
}

void Reader::begin(const WatchValues &before)
{
    {
        const auto held = values.lock();
        *held = before;
    }
    wanted.release();
}

WatchValues Reader::take()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t read = ::read(ended, &count, sizeof count);
    return values.copy();
}

bool Reader::end(std::chrono::milliseconds patience)
{
    isEnding = true;
    wanted.release();
    return thread->wait(QDeadlineTimer(patience));
}

/// The signals that a terminal sends, as readable events. What the parent process has told this one
/// to ignore stays ignored.
class Signals
{
public:
    Signals();
    ~Signals();
    Signals(const Signals &) = delete;

    int handle() const { return events; }
    /// The next one that has arrived, or 0.
    int take();

private:
    sigset_t caught{};
    sigset_t former{};
    int events = -1;
};

Signals::Signals()
{
    ::sigemptyset(&caught);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH}) {
        struct sigaction action
        {
        };
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            ::sigaddset(&caught, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &caught, &former);
    events = ::signalfd(-1, &caught, SFD_CLOEXEC | SFD_NONBLOCK);
}

Signals::~Signals()
{
    ::close(events);
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

int Signals::take()
{
    signalfd_siginfo info{};
    const ssize_t count = ::read(events, &info, sizeof info);
    return count == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

/// The screen, from the first look to the end.
class Watch
{
public:
    /// `limit`: after how many looks it ends, 0 for none.
    Watch(int intervalSeconds, int limit);

    /// Returns the exit code. The terminal is as it was before.
    int run();

private:
    enum class Ending
    {
        None,
        Asked,
        Counted,
        Lost,
        Signal,
    };

    int timeoutMs() const;
    void wait();
    /// The first reason counts: a terminal that goes away sends a signal too.
    void end(Ending reason);
    void readKeys();
    void takeSignal(int number);
    void beginLook();
    void endLook();
    Screen currentScreen() const;
    int finish();

    const int intervalSeconds;
    const int limit;
    // In this order: the reader's thread inherits the blocked signals.
    Signals signalEvents;
    TerminalScreen screen;
    Reader reader;
    WatchValues now;
    WatchValues before;
    int looks = 0;
    bool isLooking = false;
    QElapsedTimer lookTime;
    QDeadlineTimer nextLook{0};
    Ending ending = Ending::None;
    int endSignal = 0;
};

Watch::Watch(int intervalSeconds, int limit)
    : intervalSeconds(intervalSeconds)
    , limit(limit)
{
}

int Watch::run()
{
    screen.enter();
    while (ending == Ending::None) {
        if (!isLooking && nextLook.hasExpired())
            beginLook();
        screen.show(currentScreen());
        wait();
    }
    return finish();
}

int Watch::timeoutMs() const
{
    if (!isLooking)
        return static_cast<int>(std::clamp<qint64>(
            nextLook.remainingTime(), 0,
            std::chrono::duration_cast<std::chrono::milliseconds>(longestWait).count()));
    // After that the seconds are counted.
    const qint64 elapsed = lookTime.elapsed();
    return static_cast<int>(elapsed < longLook.count() ? longLook.count() - elapsed
                                                       : 1000 - elapsed % 1000);
}

void Watch::wait()
{
    // A handle of -1 is passed over.
    std::array<pollfd, 4> handles{{
        {signalEvents.handle(), POLLIN, 0},
        {reader.handle(), POLLIN, 0},
        {screen.keysHandle(), POLLIN, 0},
        {screen.isWaiting() ? screen.outputHandle() : -1, POLLOUT, 0},
    }};
    if (::poll(handles.data(), handles.size(), timeoutMs()) < 0)
        return;
    if (handles[0].revents != 0) {
        while (const int number = signalEvents.take())
            takeSignal(number);
    }
    if (handles[1].revents != 0)
        endLook();
    if (handles[2].revents != 0)
        readKeys();
    if (handles[3].revents != 0)
        screen.flush();
    if (screen.isLost())
        end(Ending::Lost);
}

void Watch::end(Ending reason)
{
    if (ending == Ending::None)
        ending = reason;
}

void Watch::readKeys()
{
    char buffer[64];
    const ssize_t count = ::read(screen.keysHandle(), buffer, sizeof buffer);
    if (count <= 0) {
        end(Ending::Lost);
        return;
    }
    const QString typed = QString::fromUtf8(buffer, count);
    // The key has another letter on a Russian keyboard.
    for (const QChar key : {u'q', u'Q', u'й', u'Й'}) {
        if (typed.contains(key))
            end(Ending::Asked);
    }
}

void Watch::takeSignal(int number)
{
    switch (number) {
    case SIGWINCH:
        return;
    case SIGTSTP:
        screen.leave();
        ::raise(SIGSTOP);
        // SIGCONT is on its way.
        return;
    case SIGCONT:
        screen.enter();
        return;
    case SIGINT:
        end(Ending::Asked);
        return;
    default:
        end(Ending::Signal);
        endSignal = number;
    }
}

void Watch::beginLook()
{
    isLooking = true;
    lookTime.start();
    reader.begin(now);
}

void Watch::endLook()
{
    isLooking = false;
    before = now;
    now = reader.take();
    // From the end of a look on, so that slow ones leave database and service their time.
    nextLook = QDeadlineTimer(std::chrono::seconds(intervalSeconds));
    if (++looks == limit)
        end(Ending::Counted);
}

Screen Watch::currentScreen() const
{
    const qint64 elapsed = isLooking ? lookTime.elapsed() : 0;
    return watchScreen(
        now, before,
        {.host = QSysInfo::machineHostName(),
         .intervalSeconds = intervalSeconds,
         .readingSeconds = elapsed < longLook.count() ? 0 : static_cast<int>(elapsed / 1000),
         .columns = screen.columns(),
         .rows = screen.rows()});
}

int Watch::finish()
{
    screen.leave();
    int exitCode = Done;
    if (ending == Ending::Counted) {
        // Nobody has sent the last look away.
        print(screenText(currentScreen()));
        exitCode = now.exitCode();
    }
    if (ending == Ending::Lost)
        exitCode = Failed;
    if (ending == Ending::Signal) {
        // The parent process sees which signal it was.
        sigset_t one{};
        ::sigemptyset(&one);
        ::sigaddset(&one, endSignal);
        ::signal(endSignal, SIG_DFL);
        ::raise(endSignal);
        ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    }
    // A look that waits for a silent server is not waited for; it leaves nothing behind.
    if (!reader.end(endPatience))
        std::_Exit(exitCode);
    return exitCode;
}

/// Looks one after the other on standard output, for a file or a program.
Report printLooks(const Call &call, int intervalSeconds, int limit)
{
    Report report;
    for (int i = 1; limit == 0 || i <= limit; ++i) {
        report = showStatus(call);
        if (call.isJson) {
            print(jsonAnswer(report.data, JsonForm::Line));
        } else {
            print(text("%1, every %2 s", "%1, каждые %2 с")
                      .arg(QTime::currentTime().toString(u"HH:mm:ss"_s),
                           QString::number(intervalSeconds))
                  + u"\n\n"_s + report.toText(hasColours()) + u'\n');
        }
        if (i != limit)
            QThread::sleep(static_cast<unsigned long>(intervalSeconds));
    }
    return report;
}

} // namespace

Report watchStatus(const Call &call)
{
    const int interval = call.number(u"interval"_s, usualIntervalSeconds);
    const int limit = call.has(u"count"_s) ? call.number(u"count"_s, 1) : 0;
    Report end;
    end.isPrinted = true;
    if (call.isJson || (limit > 0 && !canPlaceCursor()))
        end.exitCode = printLooks(call, interval, limit).exitCode;
    else
        end.exitCode = static_cast<ExitCode>(Watch(interval, limit).run());
    return end;
}

} // namespace queuectl
