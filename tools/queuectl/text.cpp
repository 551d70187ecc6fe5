#include "tools/queuectl/text.h"

#include <QStringList>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;

/// How many letters must be put in, taken out or changed to make one word of the other.
qsizetype distance(const QString &a, const QString &b)
{
    QList<qsizetype> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (qsizetype i = 0; i < a.size(); ++i) {
        qsizetype diagonal = row[0];
        row[0] = i + 1;
        for (qsizetype j = 0; j < b.size(); ++j) {
            const bool isSame = a[i].toLower() == b[j].toLower();
            const qsizetype changed = diagonal + (isSame ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, changed});
        }
    }
    return row.last();
}

struct Units
{
    QString second;
    QString minute;
    QString hour;
    QString day;
};

/// The two largest units; `gap` is between a number and its unit.
QString spanText(qint64 seconds, const Units &units, const QString &gap)
{
    const auto pair = [&gap](qint64 large, const QString &largeUnit, qint64 small,
                             const QString &smallUnit) {
        const QString first = QString::number(large) + gap + largeUnit;
        return small == 0 ? first : first + u' ' + QString::number(small) + gap + smallUnit;
    };
    // A clock that was set back makes rows from the future.
    const QString sign = seconds < 0 ? u"-"_s : QString();
    const qint64 rest = qAbs(seconds);
    if (rest < minute)
        return sign + pair(rest, units.second, 0, QString());
    if (rest < hour)
        return sign + pair(rest / minute, units.minute, 0, QString());
    if (rest < day)
        return sign + pair(rest / hour, units.hour, rest % hour / minute, units.minute);
    return sign + pair(rest / day, units.day, rest % day / hour, units.hour);
}

} // namespace

namespace {

bool findLanguage()
{
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QByteArray value = qgetenv(name);
        if (!value.isEmpty())
            return value.startsWith("ru");
    }
    return false;
}

} // namespace

bool isRussian()
{
    static const bool isChosen = findLanguage();
    return isChosen;
}

QString text(const char *english, const char *russian)
{
    return QString::fromUtf8(isRussian() ? russian : english);
}

QString numberText(qint64 number)
{
    QString digits = QString::number(qAbs(number));
    constexpr qsizetype group = 3;
    for (qsizetype at = digits.size() - group; at > 0; at -= group)
        digits.insert(at, QChar::Nbsp);
    return number < 0 ? u'-' + digits : digits;
}

QString durationText(qint64 seconds)
{
    return spanText(seconds, {text("s", "с"), text("min", "мин"), text("h", "ч"), text("d", "д")},
                    u" "_s);
}

QString shortDuration(qint64 seconds)
{
    return spanText(seconds, {text("s", "с"), text("m", "м"), text("h", "ч"), text("d", "д")},
                    QString());
}

QString timeText(const QDateTime &time)
{
    if (!time.isValid())
        return u"-"_s;
    const bool isToday = time.date() == QDate::currentDate();
    return time.toString(isToday ? u"HH:mm:ss"_s : u"yyyy-MM-dd HH:mm"_s);
}

QString nearest(const QString &word, const QStringList &known)
{
    QString best;
    qsizetype bestDistance = std::max<qsizetype>(1, word.size() / 4) + 1;
    for (const QString &candidate : known) {
        const qsizetype found = distance(word, candidate);
        if (found < bestDistance) {
            best = candidate;
            bestDistance = found;
        }
    }
    return best;
}

} // namespace queuectl
