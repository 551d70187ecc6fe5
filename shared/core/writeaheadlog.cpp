#include "shared/core/writeaheadlog.h"

#include <QVariant>

using namespace Qt::StringLiterals;

bool copyWriteAheadLog(QSqlQuery &query)
{
    constexpr int maxRounds = 5;
    QVariant framesBefore;
    for (int round = 0; round < maxRounds; ++round) {
        // A statement that failed has no row.
        query.exec(u"PRAGMA queues.wal_checkpoint(PASSIVE)"_s);
        if (!query.next())
            return false;
        const QVariant frames = query.value(1);
        const bool isCopied = query.value(2) == frames;
        query.finish();
        if (!isCopied)
            return false;
        // No frames were added since the round before, so that round has also synced the database
        // file.
        if (frames == framesBefore)
            return true;
        framesBefore = frames;
    }
    return false;
}
