#pragma once

#include "shared/net/exchangeobserver.h"

#include <QList>
#include <QTest>

/// Collects the reports of the thread's clients during its lifetime. Tests that do not need the
/// reports have no observer.
class RecordingObserver : public http::ExchangeObserver
{
public:
    void exchangeEnded(const http::ExchangeReport &report) override { reports.append(report); }

    /// The only report; an empty one, and a failed test, when there is not exactly one.
    http::ExchangeReport only() const
    {
        if (reports.size() != 1)
            QTest::qFail(qPrintable(QStringLiteral("%1 reports").arg(reports.size())), __FILE__,
                         __LINE__);
        return reports.value(0);
    }
    QStringList kinds() const
    {
        QStringList names;
        for (const http::ExchangeReport &report : reports)
            names.append(http::nameOf(report.kind));
        return names;
    }

    QList<http::ExchangeReport> reports;

private:
    const http::ExchangeObservation observation{*this};
};
