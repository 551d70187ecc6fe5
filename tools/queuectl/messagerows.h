#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace queuectl {

/// A row of the table `message` as it stands there.
struct Row
{
    int id = 0;
    QString type;
    QByteArray body;
    QString cardNumber;
    QString statusCode;
    QDateTime creationTime;

    /// The body as an object; nothing when it is not an object.
    std::optional<QJsonObject> object() const;
    qint64 ageSeconds() const;
};

/// What waits of one type.
struct TypeRows
{
    QString type;
    int count = 0;
    QDateTime oldest;
};

/// Which rows are older than a point in time.
struct Cutoff
{
    /// Rows written before this time.
    QDateTime before;
    /// Or with an id up to this one: ids still grow when a clock is set back. -1: by the time only.
    int lastId = -1;
    /// Of these types only; empty for all.
    QStringList types;

    /// A row without a readable time counts as older.
    bool takesIn(const Row &row) const;
};

/// The statements of countTypes() and oldest(), which read indexes alone but for a few rows. The
/// first one gives a row for each type; the second one gives the rows that were written first.
QString countStatement();
QString oldestStatement();

/// The table `message`, read in short statements that hold no lock when they return. Opens the
/// database that the settings name, and never makes one. Everything throws Failure: NoDatabase when
/// there is none to ask, Failed for a statement that fails. Thread: the one that made it.
class MessageRows
{
public:
    MessageRows();

    /// What waits, by type; with a time, only rows written before it.
    QList<TypeRows> types(const QDateTime &writtenBefore = QDateTime());
    /// Each type with the number of its rows and its lowest id, without reading a row.
    void countTypes(const std::function<void(const QString &, qint64, int)> &take);
    /// The time of the oldest row of each type, by the lowest ids of the types and the 1000 oldest
    /// rows: a row that was requeued has a high id and its former time. Invalid times are left out.
    QHash<QString, QDateTime> oldest(const QList<int> &lowestIds);
    /// What waits and is older, by type. A row whose time only takesIn() can read is counted as
    /// well.
    QList<TypeRows> older(const Cutoff &cutoff);
    std::optional<Row> find(int id);
    /// Up to `limit` rows with an id above `after`, ascending; with a type or card, only of it;
    /// with a time, only rows written before it.
    QList<Row> page(const QString &type, int after, int limit,
                    const QString &cardNumber = QString(),
                    const QDateTime &writtenBefore = QDateTime());
    /// How many rows; with a type, only of it; with a time, only rows written before it.
    int count(const QString &type, const QDateTime &writtenBefore = QDateTime());
    /// How many rows of the type have an id above `id`.
    int countBehind(const QString &type, int id);
    int countBefore(const QString &type, int id);
    int lastId();
    /// Whether no row has been written since the table was made, as on a till on which the service
    /// was just installed. False where the database does not tell: a server, or a table whose ids
    /// SQLite does not count.
    bool isUnused();

    /// Writes all rows or none, in order, and returns the new ids. A row without a time gets the
    /// current one. Calls `written` with the number of rows so far.
    QList<int> insert(const QList<Row> &rows, const std::function<void(int)> &written = {});
    /// Deletes the row; false when there is none.
    bool remove(int id);
    /// Writes a copy of the row after all others, with its time, and deletes the old row, in one
    /// transaction. Returns the new id; nothing when there is no such row.
    std::optional<int> requeue(int id);

private:
    QList<QVariantList> run(const QString &statement, const QVariantList &values);
    int number(const QString &statement, const QVariantList &values);
};

/// Which database the settings name: `driver`, and `place` without any password.
QJsonObject databasePlace();
/// The SQLite file of the settings, or an empty text for a server.
QString databaseFile();
/// Why the database cannot be asked, without opening an SQLite file that is not there.
void requireDatabase();

} // namespace queuectl
