#include "tools/queuectl/entrytext.h"

#include "tools/queuectl/cause.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString attemptsText(const JournalEntry &entry)
{
    if (entry.attempts < 2)
        return text("at the first attempt", "с первой попытки");
    return text("at attempt %1, the first one at %2", "попытка %1, первая в %2")
        .arg(QString::number(entry.attempts), timeText(entry.first));
}

QString closing(const JournalEntry &entry)
{
    QString answer = answerOf(entry);
    while (answer.endsWith(u'.'))
        answer.chop(1);
    return answer.isEmpty() ? u"."_s : u": "_s + answer + u'.';
}

} // namespace

QString verdictText(const QString &verdict)
{
    if (verdict == u"delivered")
        return text("delivered", "доставлено");
    if (verdict == u"dropped")
        return text("dropped", "снято с доставки");
    return verdict == u"kept" ? text("kept", "осталось") : verdict;
}

QString entryName(const JournalEntry &entry)
{
    QStringList parts{entry.type};
    if (!entry.reference.isEmpty())
        parts.append(entry.reference);
    if (!entry.card.isEmpty())
        parts.append(text("card %1", "карта %1").arg(entry.card));
    return u"%1 (%2)"_s.arg(QString::number(entry.id), parts.join(u", "_s));
}

QString entrySentence(const JournalEntry &entry)
{
    const QString attempts = attemptsText(entry);
    const QString time = timeText(entry.last);
    const QString end = closing(entry);
    if (entry.verdict == u"delivered")
        return text("Message %1 was delivered at %2, %3%4", "Сообщение %1 доставлено в %2, %3%4")
            .arg(entryName(entry), time, attempts, end);
    if (entry.verdict == u"dropped")
        return text("Message %1 was dropped at %2, %3; the service did not do what was asked%4",
                    "Сообщение %1 снято с доставки в %2, %3; сервис его не выполнил%4")
            .arg(entryName(entry), time, attempts, end);
    return text("Message %1 was last tried at %2 and stayed (%3), %4%5",
                "Последняя попытка по сообщению %1 была в %2, оно осталось (%3), %4%5")
        .arg(entryName(entry), time, causeText(causeOfKind(entry.kind)), attempts, end);
}

QString answerOf(const JournalEntry &entry)
{
    const QString words = maskedText(entry.text).simplified();
    if (entry.status < 100 || words.contains(QString::number(entry.status)))
        return words;
    const QString status = u"HTTP %1"_s.arg(entry.status);
    return words.isEmpty() ? status : status + u", "_s + words;
}

} // namespace queuectl
