#pragma once

#include "engine/outcome.h"
#include "shared/net/exchangeobserver.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct Message;

/// One attempt to deliver a message. Collects the results of the thread's exchanges and the verdict
/// of the handler; the last verdict counts. Lives on the worker's stack.
class Attempt : public http::ExchangeObserver
{
public:
    /// `references`: the keys of the values by which people search for the message.
    explicit Attempt(const Message &message, const QStringList &references = {});

    void exchangeEnded(const http::ExchangeReport &report) override;
    /// The handler's verdict and its reason. `kind` matters for a kept message only.
    void say(Verdict verdict, const QString &reason, http::FailureKind kind);

    /// `isFinished`: the result of sendMessage(). It decides: a verdict that contradicts it is
    /// ignored.
    Outcome outcome(bool isFinished) const;
    /// What the exchanges have shown besides the outcome.
    const QList<Fact> &facts() const { return facts_; }

private:
    struct Word
    {
        Verdict verdict;
        QString reason;
        http::FailureKind kind;
    };

    Outcome judge(bool isFinished) const;

    http::ExchangeObservation observation;
    Outcome begin;
    QElapsedTimer timer;
    std::optional<Word> word;
    std::optional<http::ExchangeReport> lastExchange;
    /// The path of the first request. Later attempts may fail at different steps, but the first
    /// request of a message is always the same.
    QString firstPath;
    QList<Fact> facts_;
};
