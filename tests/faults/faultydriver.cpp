#include "tests/faults/faultydriver.h"

#include <QLibraryInfo>
#include <QMutex>
#include <QPluginLoader>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlField>
#include <QSqlIndex>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QSqlResult>
#include <qsqldriverplugin.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace faultydriver {

namespace {

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
        const QVariantList values = boundValues();
        for (int i = 0; i < values.size(); ++i)
            query.bindValue(i, values.at(i));
        return finishExecution(query.exec());
    }

    bool reset(const QString &statement) override
    {
        if (takeStep(Step::Kind::Execute, statement))
            return fail(chosenError());
        return finishExecution(query.exec(statement));
    }

    bool fetchNext() override { return follow(query.next()); }
    bool fetchFirst() override { return follow(query.next()); }
    bool fetchLast() override { return follow(query.last()); }
    bool fetch(int index) override { return follow(query.seek(index)); }
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
    bool follow(bool isOnRow)
    {
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
    bool open(const QString &name, const QString &user, const QString &password,
              const QString &host, int port, const QString &options) override
    {
        const bool isChosen = takeStep(Step::Kind::Open, QString());
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
