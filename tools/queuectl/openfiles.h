#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace queuectl {

/// Which other processes have one of some files open, as far as this account may see.
struct FileUsers
{
    /// As in "queue (1234)".
    QStringList processes;
    /// False when the files of some processes can be seen only by root or another account.
    bool isComplete = true;

    /// The end of a sentence, in the operator's language.
    QString toText() const;
};

FileUsers usersOf(const QStringList &paths);

} // namespace queuectl
