#pragma once

#include "tools/queuectl/report.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

namespace queuectl {

/// What the operator has typed after the command's name.
struct Call
{
    QStringList arguments;
    QHash<QString, QString> options;
    /// All values of an option that was given several times; `options` holds the last one.
    QHash<QString, QStringList> lists;
    bool isJson = false;

    bool has(const QString &option) const { return options.contains(option); }
    QString value(const QString &option, const QString &usual = QString()) const
    {
        return options.value(option, usual);
    }
    /// A whole number of at least `smallest`. Throws Failure (Usage).
    int number(const QString &option, int usual, int smallest = 1) const;
};

struct Option
{
    QString name;
    /// The name of its value; empty for a switch.
    QString value;
    const char *english;
    const char *russian;
};

/// A row of the table of commands. Help, completion and the man page are held against it.
struct Command
{
    QString name;
    /// As in a synopsis: `TYPE [CARD]`.
    QString arguments;
    int minimumArguments = 0;
    int maximumArguments = 0;
    QList<Option> options;
    const char *english;
    const char *russian;
    /// A call as it is typed.
    QString example;
    Report (*run)(const Call &call);
};

const QList<Command> &commandTable();
/// The options that every command has.
const QList<Option> &commonOptions();

// The commands. All throw Failure.
Report showStatus(const Call &call);
Report watchStatus(const Call &call);
Report listRows(const Call &call);
Report showRow(const Call &call);
Report dropRow(const Call &call);
Report requeueRow(const Call &call);
Report putRow(const Call &call);
Report lintRow(const Call &call);
Report startWorker(const Call &call);
Report showErrors(const Call &call);
Report exportRows(const Call &call);
Report importRows(const Call &call);
Report restoreDatabase(const Call &call);
Report showShape(const Call &call);
Report explainRow(const Call &call);
Report examine(const Call &call);
Report makeBundle(const Call &call);
Report makeReport(const Call &call);
Report showTypes(const Call &call);
Report showHistory(const Call &call);
Report showOutages(const Call &call);
Report settle(const Call &call);
Report showMetrics(const Call &call);
Report checkQueue(const Call &call);

/// The row id that is typed as the first argument. Throws Failure (Usage).
int rowId(const Call &call);
/// The types that the service delivers.
QStringList deliveredTypes();
bool isDelivered(const QString &type);
/// Throws Failure (NotFound), which names the type that is meant.
void requireDelivered(const QString &type);

} // namespace queuectl
