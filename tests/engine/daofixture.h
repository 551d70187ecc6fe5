#pragma once

#include "rig/mariadbserver.h"
#include "tests/support/queuedatabase.h"

#include <QCoreApplication>
#include <QObject>
#include <QString>
#include <QTest>

#include <memory>

/// Tests of the store, which run on SQLite and then on a real server. Each case begins with an
/// empty table, and fails when Qt prints a warning.
class DaoFixture : public QObject
{
    Q_OBJECT

public:
    /// `server` is null for SQLite.
    explicit DaoFixture(rig::MariaDbServer *server);
    ~DaoFixture() override;

    /// The main function of a test program: the cases of `Test` on both.
    template <typename Test>
    static int runOnBoth(int argc, char **argv)
    {
        // A time zone other than UTC, for this process and its server.
        qputenv("TZ", "Asia/Yekaterinburg");
        const QCoreApplication application(argc, argv);
        Test onSqlite(nullptr);
        int failures = QTest::qExec(&onSqlite, argc, argv);
        rig::MariaDbServer server;
        Test onServer(&server);
        failures += QTest::qExec(&onServer, argc, argv);
        return failures;
    }

private Q_SLOTS:
    void init();
    void cleanup();

protected:
    /// Changes the table as its owner.
    void change(const QString &statement);

    rig::MariaDbServer *server;
    std::unique_ptr<QueueDatabase> database;
};
