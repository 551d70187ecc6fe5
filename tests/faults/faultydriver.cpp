#include "tests/faults/faultydriver.h"

#include "shared/core/sqlitestatement.h"
#include "tests/support/realfunction.h"

#include <QLibraryInfo>
#include <QMutex>
#include <QPluginLoader>
#include <QScopedValueRollback>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlField>
#include <QSqlIndex>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QSqlResult>
#include <QVariant>
#include <qsqldriverplugin.h>

#include <functional>
#include <memory>
#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace faultydriver {

namespace {

/// Whether this thread's call of SQLite is part of a step that has been counted.
thread_local bool isCounted = false;

struct Plan
{
    QMutex mutex;
    QList<Step> steps;
    int from = 0;
    bool isForEver = false;
};

Plan &plan()
{
    static Plan instance;
    return instance;
}

/// Takes the number of the next step; true when it has to fail.
bool takeStep(Step::Kind kind, const QString &statement)
{
    const QMutexLocker locker(&plan().mutex);
    const int number = static_cast<int>(plan().steps.size()) + 1;
    const bool isChosen =
        plan().from > 0 && (number == plan().from || (plan().isForEver && number > plan().from));
    plan().steps.append({kind, statement, isChosen});
    return isChosen;
}

/// The step fails nevertheless, with an error of SQLite itself.
void markFailed()
{
    const QMutexLocker locker(&plan().mutex);
    plan().steps.last().failed = true;
}

QSqlError chosenError()
{
    return {u"the step was chosen to fail"_s, QString(), QSqlError::StatementError};
}

QSqlDriverPlugin *sqlitePlugin()
{
    static QPluginLoader loader(QLibraryInfo::path(QLibraryInfo::PluginsPath)
                                + u"/sqldrivers/libqsqlite.so"_s);
    auto *plugin = qobject_cast<QSqlDriverPlugin *>(loader.instance());
    if (!plugin)
        qFatal("%s", qPrintable(loader.errorString()));
    return plugin;
}

/// Passes everything on to a query of the real driver.
class Result : public QSqlResult
{
public:
    Result(const QSqlDriver *driver, QSqlResult *inner)
        : QSqlResult(driver)
        , query(inner)
    {
    }

protected:
    bool prepare(const QString &statement) override
    {
        if (takeStep(Step::Kind::Prepare, statement))
            return fail(chosenError());
        if (query.prepare(statement))
            return true;
        markFailed();
        return fail(query.lastError());
    }

    bool exec() override
    {
        if (takeStep(Step::Kind::Execute, lastQuery()))
            return fail(chosenError());
        const QScopedValueRollback counted(isCounted, true);
        const QVariantList values = boundValues();
        for (int i = 0; i < values.size(); ++i)
            query.bindValue(i, values.at(i));
        return finishExecution(query.exec());
    }

    bool reset(const QString &statement) override
    {
        if (takeStep(Step::Kind::Execute, statement))
            return fail(chosenError());
        const QScopedValueRollback counted(isCounted, true);
        return finishExecution(query.exec(statement));
    }

    bool fetchNext() override
    {
        return follow([this] { return query.next(); });
    }
    bool fetchFirst() override
    {
        return follow([this] { return query.next(); });
    }
    bool fetchLast() override
    {
        return follow([this] { return query.last(); });
    }
    bool fetch(int index) override
    {
        return follow([this, index] { return query.seek(index); });
    }
    QVariant data(int field) override { return query.value(field); }
    bool isNull(int field) override { return query.isNull(field); }
    int size() override { return query.size(); }
    int numRowsAffected() override { return query.numRowsAffected(); }
    QVariant lastInsertId() const override { return query.lastInsertId(); }
    QSqlRecord record() const override { return query.record(); }
    void detachFromResultSet() override { query.finish(); }
    void setForwardOnly(bool isForwardOnly) override
    {
        QSqlResult::setForwardOnly(isForwardOnly);
        query.setForwardOnly(isForwardOnly);
    }

private:
    bool fail(const QSqlError &error)
    {
        setActive(false);
        setLastError(error);
        return false;
    }
    bool finishExecution(bool isDone)
    {
        if (!isDone) {
            markFailed();
            return fail(query.lastError());
        }
        setSelect(query.isSelect());
        setAt(QSql::BeforeFirstRow);
        setActive(true);
        return true;
    }
    bool follow(const std::function<bool()> &move)
    {
        const QScopedValueRollback counted(isCounted, true);
        const bool isOnRow = move();
        setAt(isOnRow ? query.at() : int{QSql::AfterLastRow});
        return isOnRow;
    }

    QSqlQuery query;
};

class Driver : public QSqlDriver
{
public:
    Driver()
        : inner(sqlitePlugin()->create(u"QSQLITE"_s))
    {
    }

    bool hasFeature(DriverFeature feature) const override { return inner->hasFeature(feature); }
    bool isOpen() const override { return inner->isOpen(); }
    QVariant handle() const override { return inner->handle(); }
    bool open(const QString &name, const QString &user, const QString &password,
              const QString &host, int port, const QString &options) override
    {
        const bool isChosen = takeStep(Step::Kind::Open, QString());
        const QScopedValueRollback counted(isCounted, true);
        const bool isDone = !isChosen && inner->open(name, user, password, host, port, options);
        setLastError(isChosen ? chosenError() : inner->lastError());
        setOpen(isDone);
        setOpenError(!isDone);
        return isDone;
    }
    void close() override
    {
        inner->close();
        setOpen(false);
    }
    QSqlResult *createResult() const override { return new Result(this, inner->createResult()); }
    bool beginTransaction() override { return inner->beginTransaction(); }
    bool commitTransaction() override { return inner->commitTransaction(); }
    bool rollbackTransaction() override { return inner->rollbackTransaction(); }

private:
    std::unique_ptr<QSqlDriver> inner;
};

} // namespace

void install()
{
    // What is found out about the library at the first connection is not a step of a store.
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"first"_s);
        database.setDatabaseName(u":memory:"_s);
        if (!database.open() || !SqliteStatement::handleOf(database))
            qFatal("SQLite is not reached directly");
    }
    QSqlDatabase::removeDatabase(u"first"_s);
    QSqlDatabase::registerSqlDriver(u"QSQLITE"_s, new QSqlDriverCreator<Driver>);
}

void arm(int from, bool isForEver)
{
    const QMutexLocker locker(&plan().mutex);
    plan().steps.clear();
    plan().from = from;
    plan().isForEver = isForEver;
}

QList<Step> steps()
{
    const QMutexLocker locker(&plan().mutex);
    return plan().steps;
}

} // namespace faultydriver

// These two replace SQLite's own in this program, for Qt's driver too, whose calls are counted
// where they begin.

extern "C" int sqlite3_step(sqlite3_stmt *statement)
{
    static const auto real = realFunction<decltype(sqlite3_step)>("sqlite3_step");
    using namespace faultydriver;
    const bool isExecution = !isCounted && !sqlite3_stmt_busy(statement);
    if (isExecution && takeStep(Step::Kind::Execute, QString::fromUtf8(sqlite3_sql(statement))))
        return SQLITE_IOERR;
    const QScopedValueRollback counted(isCounted, true);
    const int code = real(statement);
    if (isExecution && code != SQLITE_ROW && code != SQLITE_DONE)
        markFailed();
    return code;
}

extern "C" int sqlite3_prepare_v3(sqlite3 *connection, const char *text, int size, unsigned flags,
                                  sqlite3_stmt **statement, const char **rest)
{
    static const auto real = realFunction<decltype(sqlite3_prepare_v3)>("sqlite3_prepare_v3");
    using namespace faultydriver;
    const bool isStep = !isCounted;
    if (isStep && takeStep(Step::Kind::Prepare, QString::fromUtf8(text)))
        return SQLITE_IOERR;
    const QScopedValueRollback counted(isCounted, true);
    const int code = real(connection, text, size, flags, statement, rest);
    if (isStep && code != SQLITE_OK)
        markFailed();
    return code;
}
