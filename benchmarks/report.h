#pragma once

#include <QFile>
#include <QString>
#include <QStringList>
#include <QTextStream>

/// The required range of a figure.
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

/// The figures, one line each: printed at once, and written to a file of comma-separated values.
class Report
{
public:
    /// An existing file is replaced.
    explicit Report(const QString &path);

    void heading(const QString &text);
    void note(const QString &text);
    /// Begins a group of figures with columns of their own, which get their own file.
    void columns(const QString &text, const QString &header);
    /// One line of the group: the printed text and the line in the file.
    void values(const QStringList &texts, const QString &line);
    /// A figure of the service alone.
    void figure(const QString &what, const QString &database, double value, const QString &unit,
                Target target = {});
    /// The ratio of the service's figure to the bare loop's.
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

/// The points of one plot, in a file of comma-separated values for benchmarks/plot.
class Series
{
public:
    explicit Series(const QString &path);
    void add(const QString &database, int x, double bare, double service);

private:
    QFile file;
};
