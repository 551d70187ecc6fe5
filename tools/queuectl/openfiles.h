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
    /// False when there are processes whose files only another account, or root, may look at.
    bool isComplete = true;

    /// For a sentence that ends with it; the operator's language.
    QString toText() const;
};

FileUsers usersOf(const QStringList &paths);

} // namespace queuectl
