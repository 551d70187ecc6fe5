#pragma once

#include "tests/tools/queuectl/watch/terminalgrid.h"

#include <QMap>
#include <QProcess>
#include <QStringList>

#include <functional>

#include <termios.h>

/// A program on a terminal of its own, which is its controlling terminal: Ctrl+C and the end of the
/// terminal reach it as they reach one on a till. It is killed with the object.
class TerminalProgram
{
public:
    enum class Hangup
    {
        Usual,
        /// As under nohup.
        Ignored
    };

    TerminalProgram(const QString &program, const QStringList &arguments,
                    const QProcessEnvironment &environment, int columns = 80, int rows = 24,
                    Hangup hangup = Hangup::Usual);
    ~TerminalProgram();
    TerminalProgram(const TerminalProgram &) = delete;

    void type(const QByteArray &keys);
    void resize(int columns, int rows);
    /// From now on nobody reads what the program writes, as on a connection that is stuck.
    void stall() { isStalled = true; }
    /// The terminal goes away, as when a connection breaks.
    void hangUp();
    void signal(int number) const;
    qint64 processId() const { return process.processId(); }

    /// What is on the screen now.
    const TerminalGrid &screen();
    QString text() { return screen().text(); }
    /// All bytes since the start or forget().
    QByteArray bytes();
    void forget() { received.clear(); }
    /// Waits until the screen shows the text, or has shown it since the last call of this.
    bool shows(const QString &wanted);
    bool waitFor(const std::function<bool()> &condition);

    /// Waits for the end.
    bool hasEnded();
    int exitCode() const { return process.exitCode(); }
    /// The signal that has ended it, or 0.
    int endSignal() const;
    /// Whether mode and screen are as they were before the program.
    bool isRestored();

private:
    void read();
    termios mode() const;

    int master = -1;
    int slave = -1;
    termios formerMode{};
    TerminalGrid grid;
    QByteArray received;
    /// What the screen has shown since the last shows(): a test that is held up must not miss what
    /// is there for a second.
    QStringList former;
    bool isStalled = false;
    QProcess process;
};
