#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>

#include <utility>

namespace queuectl {

/// A value of a metric with its labels, names and values as they are.
struct Sample
{
    QList<std::pair<QString, QString>> labels;
    qint64 value = 0;
};

struct Metric
{
    enum class Kind
    {
        /// Only grows, and begins at 0 again when its source does; its name ends with `_total`.
        Counter,
        Gauge,
    };

    QString name;
    Kind kind = Kind::Gauge;
    /// In English: the name of a metric has one meaning for all tills.
    QString help;
    QList<Sample> samples;
};

/// Which of the two text forms of Prometheus is wanted.
enum class Exposition
{
    /// Version 0.0.4, which node_exporter's textfile collector and `promtool check metrics` read.
    Text,
    /// OpenMetrics 1.0: a counter is named without `_total` where it is described, and the text has
    /// an end mark.
    OpenMetrics,
};

/// The metrics in their order; those without a sample are left out. Label values are escaped,
/// control and invisible characters appear by their numbers, and long ones are cut.
QString metricsText(const QList<Metric> &metrics, Exposition exposition);
/// The same for the JSON form.
QJsonArray metricsJson(const QList<Metric> &metrics);

/// What queue, delivery journal and service tell at this moment, and which of them answered.
struct Measurement
{
    bool hasDatabase = false;
    bool hasJournal = false;
    bool hasService = false;
    /// Every metric that there is; one whose source is silent has no samples.
    QList<Metric> metrics;
};

/// Reads with statements that hold no lock when they return. Nothing throws.
Measurement measure();

} // namespace queuectl
