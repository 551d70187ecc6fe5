#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace queuectl {

/// Something to be said about a row before it is written.
struct Finding
{
    bool isError = false;
    /// The key of the body, dotted; empty for the row as a whole.
    QString key;
    QString text;
};

/// A row as a file describes it.
struct RowText
{
    QString type;
    QByteArray body;
    QString cardNumber;
    QString statusCode;
};

/// Checks type, body, the keys that the type's handler reads with their kinds, addresses, time
/// limits and certificate files.
QList<Finding> checkRow(const RowText &row);
/// Only whether the columns take the texts.
QList<Finding> checkLengths(const RowText &row);
bool hasErrors(const QList<Finding> &findings);
QJsonArray toJson(const QList<Finding> &findings);

/// The body without what the type's keys or their names tell to be secret.
QJsonObject withoutSecrets(const QString &type, const QJsonObject &body);

/// The file, or standard input for "-". Throws Failure (NotFound).
QByteArray readInput(const QString &path);

} // namespace queuectl
