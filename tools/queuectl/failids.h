#pragma once

#include <QDateTime>
#include <QMap>
#include <QString>

#include <optional>

namespace queuectl {

/// The fail ids as the service last saved them, which it does every two minutes.
struct FailIds
{
    QMap<QString, int> byType;
    /// Invalid when there is no file.
    QDateTime savedAt;
    /// This account cannot read the file.
    bool isDenied = false;

    std::optional<int> of(const QString &type) const;
};

FailIds readFailIds();

} // namespace queuectl
