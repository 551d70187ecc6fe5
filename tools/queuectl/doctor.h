#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace queuectl {

/// One thing that was looked at, and what came of it.
struct Check
{
    enum class State
    {
        Ok,
        Warning,
        Error
    } state = State::Ok;
    /// settings, database, rights, openssl, clock, port, certificates, log, rows.
    QString area;
    QString text;
    /// Where to look, for settings.
    QString file;
    int line = 0;
};

/// Looks at everything that a delivery needs. Never throws, writes nothing.
QList<Check> runChecks();

} // namespace queuectl
