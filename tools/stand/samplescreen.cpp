#include "tools/stand/samplescreen.h"

#include "tools/stand/screen.h"

#include <QTime>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

QString joined(const QSet<QString> &types)
{
    QStringList names(types.cbegin(), types.cend());
    names.sort();
    return names.join(u", "_s);
}

} // namespace

SampleLine::SampleLine(const QString &label, bool isVerbose, bool hasFailure)
    : label(label)
    , isVerbose(isVerbose)
    , hasFailure(hasFailure)
{
}

void SampleLine::showExchange(rig::PeerScript::Kind kind, const QString &address,
                              const rig::Traffic &traffic)
{
    // One message may need several requests; only the last line says what became of it.
    if (!waiting.isEmpty())
        print(waiting);
    waiting = start();
    if (kind == rig::PeerScript::Kind::Tcp)
        waiting += u"TCP    %1  %2"_s.arg(address,
                                          rig::shortened(QString::fromUtf8(traffic.request.body)));
    else
        waiting += u"%1 %2%3  %4"_s
                       .arg(traffic.request.verb.leftJustified(6), address, traffic.request.target)
                       .arg(traffic.status);
    if (!traffic.isFailure && !isVerbose)
        return;
    // The outcome of the message is still unknown, and its next request may come much later.
    print(traffic.isFailure ? waiting + u" -> "_s + coloured(say(u"сбой"_s, u"failure"_s), false)
                            : waiting);
    waiting.clear();
    if (isVerbose) {
        if (const QString text = quoted(traffic); !text.isEmpty())
            print(text);
    }
}

void SampleLine::showFate(const QString &fate, bool isGood)
{
    if (waiting.isEmpty())
        waiting = start()
                  + (isVerbose || hasFailure ? say(u"сообщение"_s, u"message"_s)
                                             : say(u"(без запроса)"_s, u"(no request)"_s));
    print(waiting + u" -> "_s + coloured(fate, isGood));
    waiting.clear();
}

QString SampleLine::start() const
{
    return u"%1  %2  "_s.arg(QTime::currentTime().toString(u"HH:mm:ss"_s), label);
}

QString Summary::result() const
{
    return say(u"Доставлено типов сообщений: %1 из %2"_s, u"Message types delivered: %1 of %2"_s)
        .arg(shown.size() - failed.size() - givenUp.size())
        .arg(shown.size());
}

void print(const Summary &summary)
{
    print(coloured(summary.result(), summary.failed.isEmpty()));
    if (!summary.givenUp.isEmpty())
        print(say(u"Удалены из-за сбоя, который для них окончателен: %1"_s,
                  u"Removed because of the failure, which is final for them: %1"_s)
                  .arg(joined(summary.givenUp)));
    if (!summary.failed.isEmpty())
        print(say(u"Не доставлены: %1"_s, u"Not delivered: %1"_s).arg(joined(summary.failed)));
}

QString describe(const rig::Failure &failure)
{
    switch (failure.kind) {
    case rig::Failure::Kind::Refuse:
        return say(u"соединения отклоняются"_s, u"connections are refused"_s);
    case rig::Failure::Kind::Status:
        return say(u"ответ на всё: %1"_s, u"everything is answered with %1"_s).arg(failure.status);
    case rig::Failure::Kind::Slow:
        return say(u"ответы опаздывают на %1 с"_s, u"answers are %1 s late"_s).arg(failure.seconds);
    case rig::Failure::Kind::Close:
        break;
    }
    return say(u"соединения обрываются без ответа"_s, u"connections end without an answer"_s);
}

} // namespace stand
