#include "tools/queuectl/doctor/journalchecks.h"

#include "engine/journalsettings.h"
#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/doctor/checks.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/report.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 bytesOfMiB = 1024 * 1024;
constexpr qint64 largeFileBytes = 1024 * bytesOfMiB;
/// The service prunes now and then, so there may be some more than the limit.
constexpr int rowsTolerance = 20'000;
/// How many entries are searched for jumps of the clock.
constexpr int searchedEntries = 10'000;
/// Attempts of several workers are written in the order in which they end; a long one began early.
constexpr qint64 jumpSeconds = 600;
constexpr qint64 futureSeconds = 60;
constexpr qint64 clockWarningSeconds = 60;
constexpr qint64 clockErrorSeconds = 300;
constexpr qint64 clockMemoryDays = 1;

using State = Check::State;

class Examination
{
public:
    QList<Check> checks;

    void file();
    void clockJumps();
    void certificates();
    void clockOffset();

    JournalFile journal;

private:
    void add(State state, const QString &area, const QString &what)
    {
        checks.append({state, area, what, {}, 0});
    }
    bool isAbsenceExpected() const;
    void size(int entries);
    void rights();
};

QString dayText(const QDateTime &time)
{
    return time.toString(u"yyyy-MM-dd"_s);
}

QString momentText(const QDateTime &time)
{
    return time.toString(u"yyyy-MM-dd HH:mm"_s);
}

bool wasNothingTried()
{
    try {
        return MessageRows().isUnused();
    } catch (const BasicException &) {
        return false;
    }
}

/// A stand-by, a service that does not run, or one without a message so far writes nothing.
bool Examination::isAbsenceExpected() const
{
    const auto holder = FolderLock::holder(serviceLockFile());
    return !JournalFile::isEnabled() || !holder || holder->role != u"active" || wasNothingTried();
}

void Examination::file()
{
    if (!JournalFile::isEnabled())
        add(State::Warning, u"journal"_s,
            text("journal:enabled is off: the outcomes of messages are not recorded",
                 "параметр journal:enabled выключен: что стало с сообщениями, не записывается"));
    if (journal.state() != JournalFile::State::Read) {
        const bool isFine = journal.state() == JournalFile::State::Missing && isAbsenceExpected();
        QString reason = journal.why();
        while (reason.endsWith(u'.'))
            reason.chop(1);
        add(isFine ? State::Ok : State::Warning, u"journal"_s, reason);
        return;
    }
    const int entries = journal.count();
    const auto oldest = journal.oldest();
    const auto latest = journal.latest();
    if (journal.state() != JournalFile::State::Read) {
        add(State::Warning, u"journal"_s, journal.why());
        return;
    }
    size(entries);
    rights();
    const QDateTime now = QDateTime::currentDateTime();
    if (latest && latest->last > now.addSecs(futureSeconds))
        add(State::Warning, u"clock"_s,
            text("the last attempt on record is from the future (%1): the clock was set back",
                 "последняя попытка записана из будущего (%1): часы перевели назад")
                .arg(momentText(latest->last)));
    add(State::Ok, u"journal"_s,
        oldest && latest ? text("%1: messages %2, since %3, last attempt %4",
                                "%1: сообщений %2, с %3, последняя попытка %4")
                               .arg(journal.path(), QString::number(entries),
                                    momentText(oldest->first), momentText(latest->last))
                         : text("%1: nothing has been tried yet", "%1: попыток ещё не было")
                               .arg(journal.path()));
}

void Examination::size(int entries)
{
    const QFileInfo file(journal.path());
    if (file.size() > largeFileBytes)
        add(State::Warning, u"journal"_s,
            text("%1 has %2 MiB; lower journal:rows or journal:days",
                 "%1 занимает %2 МиБ; уменьшите journal:rows или journal:days")
                .arg(file.filePath(), QString::number(file.size() / bytesOfMiB)));
    const QFileInfo log(journal.path() + u"-wal"_s);
    if (log.size() > largeLogBytes)
        add(State::Warning, u"journal"_s,
            text("%1 has grown to %2 MiB: a program keeps a read transaction open",
                 "%1 вырос до %2 МиБ: какая-то программа держит транзакцию чтения")
                .arg(log.filePath(), QString::number(log.size() / bytesOfMiB)));
    const int limit = settings::journal::rows.value();
    if (entries - rowsTolerance > limit)
        add(State::Warning, u"journal"_s,
            text("it holds %1 messages, journal:rows allows %2: the service does not prune it",
                 "в журнале доставки %1 сообщений при journal:rows %2: служба его не сокращает")
                .arg(QString::number(entries), QString::number(limit)));
}

void Examination::rights()
{
    const QFileInfo file(journal.path());
    const QFileInfo folder(file.path());
    for (const QString &path :
         {file.filePath(), file.filePath() + u"-wal"_s, file.filePath() + u"-shm"_s}) {
        const QFileInfo info(path);
        if (!info.exists())
            continue;
        if (ownerOf(info) != ownerOf(folder) && !info.permission(QFile::WriteGroup))
            add(State::Warning, u"journal"_s,
                text("%1 belongs to %2, its folder to %3: the service may not be able to write it",
                     "%1 принадлежит %2, а каталог — %3: служба может не иметь права записи")
                    .arg(path, ownerOf(info), ownerOf(folder)));
        if (info.permission(QFile::ReadOther))
            add(State::Warning, u"journal"_s,
                text("every account can read %1 (chmod o-rwx %1)",
                     "%1 может читать любая учётная запись (chmod o-rwx %1)")
                    .arg(path));
    }
}

void Examination::clockJumps()
{
    const QList<JournalEntry> entries = journal.lastMade(searchedEntries);
    // Newest first: the previous entry is the next one of the list.
    for (qsizetype i = 0; i + 1 < entries.size(); ++i) {
        const QDateTime &later = entries[i].first;
        const QDateTime &earlier = entries[i + 1].first;
        if (!later.isValid() || !earlier.isValid())
            continue;
        const qint64 back = later.secsTo(earlier);
        if (back < jumpSeconds)
            continue;
        add(State::Warning, u"clock"_s,
            text(
                "the clock was set back by %1 after %2: recorded times before and after this cannot be compared",
                "часы перевели назад на %1 после %2: времена записей до и после несравнимы")
                .arg(durationText(back), momentText(earlier)));
        return;
    }
}

void Examination::certificates()
{
    const QDateTime now = QDateTime::currentDateTime();
    const QList<Fact> facts = journal.facts(u"certificate"_s);
    for (const Fact &fact : facts) {
        bool isNumber = false;
        const qint64 milliseconds = fact.value.toLongLong(&isNumber);
        // A certificate that was used once may have been replaced since.
        if (!isNumber || !fact.time.isValid() || fact.time.daysTo(now) > certificateMemoryDays)
            continue;
        const QDateTime end = QDateTime::fromMSecsSinceEpoch(milliseconds);
        const QString path = shortened(fact.subject, answerWidth);
        if (end <= now)
            add(State::Error, u"certificates"_s,
                text("%1, in use on %2, has expired on %3", "%1, использован %2, срок истёк %3")
                    .arg(path, dayText(fact.time), dayText(end)));
        else if (now.daysTo(end) < soonDays)
            add(State::Warning, u"certificates"_s,
                text("%1, in use on %2, expires on %3, in %4 days",
                     "%1, использован %2, срок истекает %3, через %4 дн.")
                    .arg(path, dayText(fact.time), dayText(end), QString::number(now.daysTo(end))));
        else
            add(State::Ok, u"certificates"_s,
                text("%1, in use on %2, is valid until %3", "%1, использован %2, действует до %3")
                    .arg(path, dayText(fact.time), dayText(end)));
    }
}

/// The clock of one service may be wrong; the median of several is taken as right.
void Examination::clockOffset()
{
    struct Offset
    {
        QString host;
        qint64 seconds;
        QDateTime time;
    };
    const QDateTime now = QDateTime::currentDateTime();
    QList<Offset> offsets;
    const QList<Fact> facts = journal.facts(u"clock"_s);
    for (const Fact &fact : facts) {
        bool isNumber = false;
        const double seconds = fact.value.toDouble(&isNumber);
        // The till's clock may have been set since an old entry.
        if (isNumber && qAbs(seconds) < 1e12 && fact.time.isValid()
            && fact.time >= now.addDays(-clockMemoryDays))
            offsets.append({fact.subject, qRound64(seconds), fact.time});
    }
    if (offsets.isEmpty())
        return;
    std::sort(offsets.begin(), offsets.end(),
              [](const Offset &a, const Offset &b) { return a.seconds < b.seconds; });
    const Offset &middle = offsets[offsets.size() / 2];
    const qint64 size = qAbs(middle.seconds);
    const QString host = shortened(middle.host, usualWidth);
    if (size < clockWarningSeconds) {
        add(State::Ok, u"clock"_s,
            text("agrees with the answers of services (%1 s at %2)",
                 "сходятся с ответами сервисов (%1 с по %2)")
                .arg(QString::number(middle.seconds), host));
        return;
    }
    add(size < clockErrorSeconds ? State::Warning : State::Error, u"clock"_s,
        (middle.seconds > 0
             ? text(
                 "the till's clock is %1 ahead of %2 (answer of %3): set it, or certificates and signatures are refused",
                 "часы кассы спешат на %1 относительно %2 (ответ в %3): переведите их, иначе сертификаты и подписи не примут")
             : text(
                 "the till's clock is %1 behind %2 (answer of %3): set it, or certificates and signatures are refused",
                 "часы кассы отстают на %1 относительно %2 (ответ в %3): переведите их, иначе сертификаты и подписи не примут"))
            .arg(durationText(size), host, momentText(middle.time)));
}

} // namespace

QList<Check> checkJournal()
{
    Examination examination;
    examination.file();
    examination.clockJumps();
    examination.certificates();
    examination.clockOffset();
    return examination.checks;
}

} // namespace queuectl
