#pragma once

#include <QFile>
#include <QString>
#include <QStringList>
#include <QTextStream>

/// What a figure has to be.
struct Target
{
    enum class Kind
    {
        None,
        AtMost,
        AtLeast
    };
    Kind kind = Kind::None;
    double value = 0;

    static Target atMost(double value) { return {Kind::AtMost, value}; }
    static Target atLeast(double value) { return {Kind::AtLeast, value}; }
};

/// The figures, one line each: on standard output as they come, and as a table of comma-separated
/// values in a file.
class Report
{
public:
    /// The file is replaced.
    explicit Report(const QString &path);

    void heading(const QString &text);
    void note(const QString &text);
    /// Heads figures that have columns of their own, and a file of their own beside the other.
    void columns(const QString &text, const QString &header);
    /// One line of them: as it is printed, and as it is in the file.
    void values(const QStringList &texts, const QString &line);
    /// A figure taken from the service alone.
    void figure(const QString &what, const QString &database, double value, const QString &unit,
                Target target = {});
    /// The service's figure over that of the bare loop.
    void ratio(const QString &what, const QString &database, double bare, double service,
               const QString &unit, Target target);

private:
    void row(const QString &what, const QString &database, const QString &bare,
             const QString &service, const QString &unit, double judged, Target target,
             const QString &ratio);

    QTextStream out;
    QFile file;
    QFile columnsFile;
};

/// Points of one plot, in a file of comma-separated values that benchmarks/plot reads.
class Series
{
public:
    explicit Series(const QString &path);
    void add(const QString &database, int x, double bare, double service);

private:
    QFile file;
};
