#pragma once

#include "shared/core/basicexception.h"

namespace queuectl {

/// What the program ends with. A script tells by it what has to be done; the man page lists them.
enum ExitCode
{
    Done = 0,
    /// The command did its work and found something wrong.
    Found = 1,
    /// The command line is wrong.
    Usage = 2,
    /// There is no such row, type or file.
    NotFound = 3,
    /// The database cannot be reached or holds no queue.
    NoDatabase = 4,
    /// The service does not answer on its port.
    NoService = 5,
    /// The question was answered with no, or there was no terminal to ask it on.
    NotConfirmed = 6,
    /// A file, a database statement or an outside program failed.
    Failed = 7,
};

/// A command cannot be carried out. The text is in the operator's language.
class Failure : public BasicException
{
public:
    Failure(ExitCode exitCode, const QString &text)
        : BasicException(text)
        , exitCode_(exitCode)
    {
    }

    ExitCode exitCode() const { return exitCode_; }

private:
    ExitCode exitCode_;
};

} // namespace queuectl
