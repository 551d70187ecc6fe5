#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>

/// The outcome of one message, as a test writes it.
struct Record
{
    int id = 1;
    QString type = QStringLiteral("heineken");
    QString verdict = QStringLiteral("delivered");
    QString kind = QStringLiteral("none");
    int status = 200;
    QString text = {};
    QString reference = {};
    QString card = {};
    int attempts = 1;
    /// Time of the last attempt.
    int secondsAgo = 60;
    /// Time between the first and the last attempt.
    int spanSeconds = 0;
    int milliseconds = 12;
};

/// A delivery journal made by hand below a till's root.
class JournalFixture
{
public:
    /// Creates the file; its write-ahead log is deleted with the object.
    explicit JournalFixture(const QString &root);
    ~JournalFixture();
    JournalFixture(const JournalFixture &) = delete;

    QString file() const { return path; }
    void put(const Record &record);
    /// 0: never, or not failing.
    void streak(const QString &type, int deliveredSecondsAgo, int failingSecondsAgo);
    void fact(const QString &name, const QString &subject, const QString &value, int secondsAgo);
    void run(const QString &statement, const QVariantList &values = {});
    /// The details of the plan for the statement.
    QStringList plan(const QString &statement, const QVariantList &values);
    /// Closes the file like a service that ends; later calls open it again.
    void close();

private:
    void open();

    QString path;
    QString name;
};
