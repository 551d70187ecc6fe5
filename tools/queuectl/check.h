#pragma once

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
    /// settings, database, rights, openssl, clock, port, certificates, log, journal, rows.
    QString area;
    QString text;
    /// Where to look, for settings.
    QString file = {};
    int line = 0;
};

/// Collects what came of the checks of one area.
class Findings
{
public:
    explicit Findings(const QString &area)
        : area(area)
    {
    }

    void add(Check::State state, const QString &text) { checks.append({state, area, text}); }
    void ok(const QString &text) { add(Check::State::Ok, text); }
    void warn(const QString &text) { add(Check::State::Warning, text); }
    void error(const QString &text) { add(Check::State::Error, text); }

    QList<Check> checks;

private:
    QString area;
};

} // namespace queuectl
