#include "engine/attempt.h"

#include "engine/message.h"

Attempt::Attempt(const Message &message)
    : observation(*this)
{
    begin.id = message.id;
    begin.type = message.type;
    begin.card = message.cardNumber;
    begin.begun = QDateTime::currentDateTimeUtc();
    timer.start();
}

void Attempt::exchangeEnded(const http::ExchangeReport &report)
{
    lastExchange = report;
}

void Attempt::say(Verdict verdict, const QString &reason, http::FailureKind kind)
{
    word = Word{verdict, reason, kind};
}

Outcome Attempt::outcome(bool isFinished) const
{
    using http::FailureKind;

    Outcome outcome = begin;
    outcome.took = std::chrono::milliseconds(timer.elapsed());
    if (lastExchange) {
        outcome.status = lastExchange->status;
        outcome.reference = lastExchange->path;
    }
    const bool wordCounts = word && (word->verdict != Verdict::Kept) == isFinished;
    if (wordCounts)
        outcome.text = word->reason;
    if (isFinished) {
        outcome.verdict = wordCounts ? word->verdict : Verdict::Delivered;
        return outcome;
    }
    outcome.verdict = Verdict::Kept;
    if (wordCounts) {
        outcome.kind = word->kind;
    } else if (!lastExchange) {
        // Nothing went out: the message, or what the till has set up for it, cannot be used.
        outcome.kind = FailureKind::Request;
    } else if (lastExchange->kind == FailureKind::None) {
        outcome.kind = FailureKind::Service;
    } else {
        outcome.kind = lastExchange->kind;
        outcome.text = lastExchange->text;
    }
    return outcome;
}
