#pragma once

#include <QByteArray>
#include <QLatin1StringView>
#include <QSqlError>
#include <QString>
#include <QVariant>

#include <array>

class QSqlDatabase;
struct sqlite3;
struct sqlite3_stmt;

/// A prepared statement that is executed through SQLite's own interface. Qt's driver describes the
/// columns again at every execution and passes texts as UTF-16; for the statements of a delivery
/// and of the journal that takes as many instructions as SQLite itself.
///
/// After an execution with rows, call finish(): until then the statement reads a snapshot of the
/// database.
///
/// Thread: that of the connection.
class SqliteStatement
{
public:
    /// SQLite's handle of an open connection. Null on a server, and if Qt has been built with an
    /// SQLite of its own, whose handles the library that this program is linked to must not touch.
    static sqlite3 *handleOf(const QSqlDatabase &database);
    /// Call before a connection is closed: SQLite does not close one that still has statements. The
    /// statements are no longer prepared afterwards; executing them fails.
    static void finalizeAll(sqlite3 *connection);

    /// If SQLite refuses the text, the statement is not prepared.
    SqliteStatement(sqlite3 *connection, const QByteArray &text);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement &) = delete;
    SqliteStatement &operator=(const SqliteStatement &) = delete;

    bool isPrepared() const { return handle; }
    /// Executes it with a value for each parameter, in the order of their first appearance:
    /// integers and texts; a null text is an empty one.
    template <typename... Values>
    bool execute(const Values &...values)
    {
        static_assert(sizeof...(Values) <= mostValues);
        reset();
        int position = 0;
        (bind(position++, values), ...);
        const bool isExecuted = step();
        isFirstRowRead = isOnRow;
        return isExecuted;
    }
    /// Moves to the next row, at first to the first one. False after the last row, and on an error.
    bool next();
    void finish();
    /// Why SQLite refused the latest execution, as Qt's driver words it; invalid if it did not.
    const QSqlError &lastError() const { return error; }

    /// A column of the row, as Qt's driver returns it.
    QVariant value(int column) const;

private:
    static constexpr int mostValues = 16;

    void reset();
    void bind(int position, qint64 value);
    void bind(int position, const QString &text);
    /// For constants: the text is not copied.
    void bind(int position, QLatin1StringView text);
    /// False on an error.
    bool step();

    sqlite3 *const connection;
    sqlite3_stmt *handle = nullptr;
    /// The first row has been read and not been asked for.
    bool isFirstRowRead = false;
    bool isOnRow = false;
    QSqlError error;
    /// The bound texts; SQLite reads them during the steps.
    std::array<QByteArray, mostValues> texts;
};
