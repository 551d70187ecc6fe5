#pragma once

#include "engine/outcome.h"
#include "shared/net/exchangeobserver.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct Message;

/// One attempt in the making: what the exchanges of the thread came to, and what the handler said
/// of it. The last word counts. On the stack of the worker.
class Attempt : public http::ExchangeObserver
{
public:
    /// `references`: the keys of what a person searches the message by.
    explicit Attempt(const Message &message, const QStringList &references = {});

    void exchangeEnded(const http::ExchangeReport &report) override;
    /// The handler's own word, with its reason. `kind` matters for a kept message only.
    void say(Verdict verdict, const QString &reason, http::FailureKind kind);

    /// `isFinished`: the result of the delivery. It decides: a word that does not go with it is not
    /// used.
    Outcome outcome(bool isFinished) const;
    /// What the exchanges have shown beside the outcome.
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
    /// The first request of a message is the same one at each attempt; how far the others come
    /// differs.
    QString firstPath;
    QList<Fact> facts_;
};
