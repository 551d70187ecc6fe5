#pragma once

#include "benchmarks/options.h"
#include "benchmarks/process.h"
#include "benchmarks/receiver.h"
#include "benchmarks/table.h"
#include "rig/till.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <memory>

/// A till on one database, the programs that drain its table, and the receiver of their requests.
/// Errors are thrown as std::runtime_error.
class Scene
{
public:
    using Variables = QMap<QString, QString>;

    Scene(const Options &options, Table &table, Receiver &receiver);

    const Options &options;
    Table &table;
    Receiver &receiver;

    /// The path of a file in the till's folder.
    QString path(const QString &name) const { return till.path(u'/' + name); }
    QString settingsFile() const;
    QString serviceLog() const { return path(QStringLiteral("service.log")); }
    QString bareLog() const { return path(QStringLiteral("bare.log")); }

    /// Whether the service keeps its delivery journal from its next start on. True at first.
    void setJournal(bool isKept);
    /// Starts the service, or another build of it, with an empty log.
    std::unique_ptr<Process> startService(Processors processors = Processors::All,
                                          const Variables &environment = {},
                                          const QString &program = QString()) const;
    /// `each`: the number of messages of each type. A gate is for SQLite only.
    std::unique_ptr<Process> startBareLoop(const QStringList &names, int each, bool isQt,
                                           bool isGated, Processors processors,
                                           const Variables &environment = {}) const;
    /// Starts another program with its output in a new file. The till's folder is in its
    /// environment.
    std::unique_ptr<Process> start(const QString &program, const QStringList &arguments,
                                   const QString &output, const Variables &environment = {},
                                   Processors processors = Processors::All) const;

    /// Waits until that many requests have arrived since Receiver::expect().
    void awaitRequests(int requests);
    /// Waits until the service's control interface accepts connections.
    void awaitControl() const;
    /// Milliseconds from connecting to the end of the answer.
    double askStatus() const;

private:
    rig::Till till;
};
