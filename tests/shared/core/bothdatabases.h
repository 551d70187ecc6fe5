#pragma once

#include "rig/mariadbserver.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/support/queuedatabase.h"

#include <QObject>

#include <memory>

/// Tests for SQLite and a server: a case with the rows bothDatabases() runs once on each. A case
/// begins on SQLite, with an empty table, and fails when Qt prints a warning.
class BothDatabases : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

protected:
    /// The column `isServer`, and a row for each database.
    static void bothDatabases();
    /// Whether the data row is the server's.
    static bool isServer();
    /// Directs the service to the database of the data row.
    void useDatabase();

    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    std::unique_ptr<rig::MariaDbServer> server;
    std::unique_ptr<QueueDatabase> queue;
};
