#include "engine/attempt.h"

#include "engine/cardmask.h"
#include "engine/message.h"
#include "engine/reference.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype longestText = 500;

} // namespace

Attempt::Attempt(const Message &message, const QStringList &references)
    : observation(*this)
{
    begin.id = message.id;
    begin.type = message.type;
    begin.card = maskedCard(message.cardNumber);
    begin.reference = referenceOf(message.body, references);
    begin.begun = QDateTime::currentDateTimeUtc();
    timer.start();
}

void Attempt::exchangeEnded(const http::ExchangeReport &report)
{
    // A handler gives its verdict as it returns, so a verdict before this exchange was about an
    // earlier step.
    word.reset();
    lastExchange = report;
    if (firstPath.isEmpty())
        firstPath = report.path;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (report.certificateEnd.isValid())
        facts_.append({u"certificate"_s, report.certificatePath,
                       QString::number(report.certificateEnd.toMSecsSinceEpoch()), now});
    if (report.clockDifference)
        facts_.append(
            {u"clock"_s, report.host, QString::number(report.clockDifference->count()), now});
}

void Attempt::say(Verdict verdict, const QString &reason, http::FailureKind kind)
{
    word = Word{verdict, reason, kind};
}

Outcome Attempt::outcome(bool isFinished) const
{
    Outcome outcome = judge(isFinished);
    outcome.took = std::chrono::milliseconds(timer.elapsed());
    if (lastExchange)
        outcome.status = lastExchange->status;
    if (outcome.reference.isEmpty())
        outcome.reference = referenceText(firstPath);
    // A reason may quote the answer, which may hold a card number.
    outcome.text = maskCardNumbers(outcome.text).left(longestText);
    return outcome;
}

Outcome Attempt::judge(bool isFinished) const
{
    using http::FailureKind;

    Outcome outcome = begin;
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
        // No request was sent: the message, or the till's configuration for it, cannot be used.
        outcome.kind = FailureKind::Request;
    } else if (lastExchange->kind == FailureKind::None) {
        outcome.kind = FailureKind::Service;
    } else {
        outcome.kind = lastExchange->kind;
        outcome.text = lastExchange->text;
    }
    return outcome;
}
