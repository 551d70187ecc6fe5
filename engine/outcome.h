#pragma once

#include "shared/net/exchangeerror.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QString>

#include <chrono>

/// The result of an attempt to deliver a message.
enum class Verdict
{
    /// The service did what was asked, now or before.
    Delivered,
    /// Finished with, although the service did not do what was asked.
    Dropped,
    /// It stays in the table for a later pass.
    Kept,
};

/// `delivered`, `dropped` or `kept`.
QLatin1StringView nameOf(Verdict verdict);

/// One attempt to deliver one message.
struct Outcome
{
    int id = 0;
    QString type = {};
    /// Its last four characters, as maskedCard() has it.
    QString card = {};
    /// What people search for: the number of a receipt, an order, a refund; otherwise the path of
    /// the first request. Card numbers are masked here and in `text`.
    QString reference = {};
    Verdict verdict = Verdict::Kept;
    /// None unless the message was kept.
    http::FailureKind kind = http::FailureKind::None;
    /// HTTP status of the last answer; 0 without one.
    int status = 0;
    /// The reason for people, in Russian; empty for a plain delivery.
    QString text = {};
    /// UTC.
    QDateTime begun = {};
    std::chrono::milliseconds took{0};
};

/// An observation from an exchange that is not part of the outcome.
struct Fact
{
    /// `certificate`: the subject is the path of a client certificate in use, the value its expiry
    /// time in milliseconds since 1970. `clock`: the subject is a host, the value is how many
    /// seconds the till's clock is ahead of the Date of the host's answer.
    QString name = {};
    QString subject = {};
    QString value = {};
    /// UTC.
    QDateTime time = {};
};

/// Receives the outcomes of all workers. Thread: any; must return at once.
class OutcomeSink
{
public:
    virtual ~OutcomeSink() = default;
    virtual void take(const Outcome &outcome) = 0;
    /// Called before take() of the same attempt. By default does nothing.
    virtual void note(const Fact & /*fact*/) {}
};
