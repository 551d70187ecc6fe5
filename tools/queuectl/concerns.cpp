#include "tools/queuectl/concerns.h"

#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include <QMap>

using namespace Qt::StringLiterals;

namespace queuectl {

QList<Concern> concernsOf(MessageRows &rows, const Situation &situation)
{
    QMap<QString, int> old;
    const QList<TypeRows> late = rows.types(QDateTime::currentDateTime().addSecs(-oldRowSeconds));
    for (const TypeRows &type : late)
        old.insert(type.type, type.count);

    QList<Concern> concerns;
    const QList<TypeRows> types = rows.types();
    for (const TypeRows &type : types) {
        const Streak streak = situation.streaks.value(type.type);
        if (!isDelivered(type.type))
            concerns.append(
                {Concern::Kind::NoHandler, type.type, type.count,
                 text("nobody delivers this type, rows: %1", "тип никто не доставляет, строк: %1")
                     .arg(type.count)});
        else if (streak.failingSince.isValid() && !streak.lastDelivered.isValid())
            concerns.append({Concern::Kind::OnlyFailed, type.type, type.count,
                             text("was never delivered, only refused, rows: %1",
                                  "доставок ещё не было, одни отказы, строк: %1")
                                 .arg(type.count)});
        else if (old.contains(type.type))
            concerns.append({Concern::Kind::Old, type.type, old.value(type.type),
                             text("rows that wait for more than an hour: %1",
                                  "строк, которые ждут больше часа: %1")
                                 .arg(old.value(type.type))});
    }
    return concerns;
}

QString kindName(Concern::Kind kind)
{
    switch (kind) {
    case Concern::Kind::NoHandler:
        return u"no-handler"_s;
    case Concern::Kind::OnlyFailed:
        return u"only-failed"_s;
    case Concern::Kind::Old:
        break;
    }
    return u"old"_s;
}

} // namespace queuectl
