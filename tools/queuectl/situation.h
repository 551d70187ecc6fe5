#pragma once

#include "tools/queuectl/failids.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/servicelog.h"

#include <QJsonObject>
#include <QString>

namespace queuectl {

/// What is known beside the rows themselves: how far each type has come and what its log tells.
struct Situation
{
    FailIds failIds;
    ServiceLog log;

    static Situation read();

    /// Whether the row has been refused, as far as can be told: the service saves its fail ids only every
    /// two minutes, and a log file is not always kept.
    bool wasRefused(const Row &row) const;
    std::optional<Attempt> lastAttempt(const Row &row) const;
    /// The last answer to this row; where the log does not tell one from another, to its type.
    std::optional<LogLine> lastFailure(const Row &row) const;
    Cause cause(const Row &row) const;
};

/// Where a message goes: `host:port` of its address, those of a list with commas between them, or the
/// setting that names the address. Empty when neither the row nor a setting tells.
QString destinationOf(const QString &type, const QJsonObject &body);

} // namespace queuectl
