#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace rig {

struct Exchange;

/// A request as it arrived.
struct ArrivedRequest
{
    QString verb;
    QString target;
    /// In the order of arrival, names as they came.
    QList<std::pair<QString, QString>> headers;
    QByteArray body;

    QString line() const;
    QString header(const QString &name) const;
};

/// How the request differs from the expected one, one readable entry for each difference; empty
/// when it does not.
QStringList differences(const Exchange &expected, const ArrivedRequest &arrived);

/// The same for two JSON values; `path` is where they stand. Texts of `expected` may hold patterns.
QStringList differences(const QJsonValue &expected, const QJsonValue &arrived, const QString &path);

/// The request in a few lines, long bodies shortened.
QString describe(const ArrivedRequest &request);
/// A text on one line, shortened to what a report can bear.
QString shortened(const QString &text);

} // namespace rig
