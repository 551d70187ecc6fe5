#pragma once

#include "shared/net/exchangeerror.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QString>

#include <chrono>

/// What became of a message when it was tried.
enum class Verdict
{
    /// The service did what was asked, now or before.
    Delivered,
    /// Finished with, although the service did not do what was asked.
    Dropped,
    /// It stays for a later pass.
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
    /// What a person searches by: a receipt, an order, a refund; else the path of the first
    /// request. Without numbers of payment cards, as the text.
    QString reference = {};
    Verdict verdict = Verdict::Kept;
    /// None unless the message was kept.
    http::FailureKind kind = http::FailureKind::None;
    /// HTTP status of the last answer; 0 when none came.
    int status = 0;
    /// The reason in words for people, in Russian; empty for a plain delivery.
    QString text = {};
    /// UTC.
    QDateTime begun = {};
    std::chrono::milliseconds took{0};
};

/// What an exchange has shown of the surroundings, beside its outcome.
struct Fact
{
    /// `certificate`: the subject is the path of a client certificate in use, the value the end of
    /// its validity in milliseconds since 1970. `clock`: the subject is a host, the value by how
    /// many seconds the till's clock is ahead of the time in its answer.
    QString name = {};
    QString subject = {};
    QString value = {};
    /// UTC.
    QDateTime time = {};
};

/// Takes the outcomes of all workers. Thread: any; must return at once.
class OutcomeSink
{
public:
    virtual ~OutcomeSink() = default;
    virtual void take(const Outcome &outcome) = 0;
    /// Facts come before the outcome of their attempt. By default they are not used.
    virtual void note(const Fact & /*fact*/) {}
};
