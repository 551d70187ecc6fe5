#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace rig {

struct Exchange;

struct ArrivedRequest
{
    QString verb;
    QString target;
    /// In the order of arrival, with unchanged names.
    QList<std::pair<QString, QString>> headers;
    QByteArray body;

    QString line() const;
    QString header(const QString &name) const;
};

/// The differences between the request and the expected one, one readable entry each; empty if
/// there are none.
QStringList differences(const Exchange &expected, const ArrivedRequest &arrived);

/// The same for two JSON values at `path`. Texts of `expected` may contain patterns.
QStringList differences(const QJsonValue &expected, const QJsonValue &arrived, const QString &path);

/// The request in a few lines, with long bodies shortened.
QString describe(const ArrivedRequest &request);
/// A text on one line, shortened for a report.
QString shortened(const QString &text);

} // namespace rig
