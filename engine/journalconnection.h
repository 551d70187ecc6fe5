#pragma once

#include "shared/core/basicexception.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QString>

#include <array>
#include <chrono>

struct sqlite3;
struct sqlite3_stmt;

/// The journal's file could not be opened or written.
class JournalFault : public BasicException
{
public:
    JournalFault(const QString &text, bool isDamage)
        : BasicException(text)
        , isDamage_(isDamage)
    {
    }

    /// The file is not a sound database.
    bool isDamage() const { return isDamage_; }

private:
    bool isDamage_;
};

/// A connection to an existing SQLite file through SQLite's own interface. Through Qt's driver, the
/// row of a message takes twice the instructions.
///
/// Every call throws JournalFault, with SQLite's own text, when SQLite refuses it.
///
/// Thread: one at a time.
class JournalConnection
{
public:
    class Statement;

    /// A statement waits for as long as `busyTimeout` while another program has the file locked.
    JournalConnection(const QString &path, std::chrono::milliseconds busyTimeout);
    ~JournalConnection();
    JournalConnection(const JournalConnection &) = delete;
    JournalConnection &operator=(const JournalConnection &) = delete;

    /// Executes a statement to its end. Returns the first value of its first row as a number; 0
    /// without a row.
    qint64 run(const char *statement);
    qint64 run(const QString &statement) { return run(statement.toUtf8().constData()); }

private:
    [[noreturn]] void fail() const;
    sqlite3_stmt *prepare(const char *text, unsigned flags);

    sqlite3 *handle = nullptr;
};

/// A prepared statement. It must not outlive its connection.
class JournalConnection::Statement
{
public:
    Statement(JournalConnection &connection, const QByteArray &text);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    /// Executes it with a value for each `?`: integers and texts; a null text is stored as an empty
    /// one. Returns the number of changed rows.
    template <typename... Values>
    qint64 execute(const Values &...values)
    {
        static_assert(sizeof...(Values) <= mostValues);
        int position = 0;
        (bind(position++, values), ...);
        return step();
    }

private:
    static constexpr int mostValues = 16;

    void bind(int position, qint64 value);
    void bind(int position, const QString &text);
    /// For constants: the text is not copied.
    void bind(int position, QLatin1StringView text);
    qint64 step();

    JournalConnection &connection;
    sqlite3_stmt *const handle;
    /// The bound texts; SQLite reads them during the step.
    std::array<QByteArray, mostValues> texts;
};
