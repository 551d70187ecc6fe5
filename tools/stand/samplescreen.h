#pragma once

#include "rig/scriptedpeer.h"

#include <QSet>
#include <QString>

namespace stand {

/// The lines on the screen for the messages of one sample.
class SampleLine
{
public:
    SampleLine() = default;
    /// `label` is the type, as wide as the column. With `isVerbose`, headers and bodies are shown.
    /// `hasFailure`: lines of failed exchanges come before, so a message that has no line left is
    /// not said to have had no request.
    SampleLine(const QString &label, bool isVerbose, bool hasFailure);

    void showExchange(rig::PeerScript::Kind kind, const QString &address,
                      const rig::Traffic &traffic);
    /// What became of the messages.
    void showFate(const QString &fate, bool isGood);

private:
    QString start() const;

    QString label;
    bool isVerbose = false;
    bool hasFailure = false;
    /// An exchange whose line is printed when the outcome of its message is known.
    QString waiting;
};

/// The end of a show; the members are types.
struct Summary
{
    QSet<QString> shown = {};
    QSet<QString> failed = {};
    /// Their messages were removed because of the failure.
    QSet<QString> givenUp = {};

    /// How many types were delivered.
    QString result() const;
};

void print(const Summary &summary);

/// The failure as a part of a sentence.
QString describe(const rig::Failure &failure);

} // namespace stand
