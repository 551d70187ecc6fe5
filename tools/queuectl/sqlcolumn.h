#pragma once

#include <QString>
#include <QStringList>

class QSqlDatabase;

namespace queuectl {

/// The values of one column of a statement's result, or nothing when it fails.
QStringList columnOf(const QSqlDatabase &connection, const QString &statement, int column);

} // namespace queuectl
