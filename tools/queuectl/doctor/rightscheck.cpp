#include "tools/queuectl/doctor/checks.h"

#include "shared/core/paths.h"
#include "tools/queuectl/doctor/secretfiles.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>
#include <QStorageInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 lowSpaceBytes = 200LL * 1024 * 1024;

/// The service's folder and the free space of its disk.
void examineFolder(const QFileInfo &folder, Findings &findings)
{
    if (!folder.isDir())
        findings.error(text("there is no folder %1", "нет каталога %1").arg(folder.filePath()));
    else if (!folder.isWritable())
        findings.warn(
            text("this account cannot write into %1", "эта учётная запись не может писать в %1")
                .arg(folder.filePath()));
    const QStorageInfo storage(folder.filePath());
    if (storage.isValid() && storage.bytesAvailable() < lowSpaceBytes)
        findings.error(
            text("only %1 MiB are free on the disk of %2", "свободно всего %1 МиБ на диске с %2")
                .arg(QString::number(storage.bytesAvailable() / 1024 / 1024), folder.filePath()));
}

/// The service writes the database and, beside it, the files of its write-ahead log.
void examineOwners(const QFileInfo &folder, Findings &findings)
{
    const QString file = databaseFile();
    const QFileInfo info(file);
    if (file.isEmpty() || !info.exists())
        return;
    const QFileInfo home(info.path());
    if (ownerOf(info) != ownerOf(home) || ownerOf(info) != ownerOf(folder)) {
        findings.warn(
            text("%1 belongs to %2 and its folder to %3: the service may not be able to write",
                 "%1 принадлежит %2, а каталог — %3: служба может не иметь права записи")
                .arg(file, ownerOf(info), ownerOf(home)));
        return;
    }
    bool isGood = true;
    for (const QString &ending : {u"-wal"_s, u"-shm"_s}) {
        const QFileInfo beside(file + ending);
        if (beside.exists() && ownerOf(beside) != ownerOf(info)) {
            findings.error(text("%1 belongs to %2, the database to %3: the service cannot write",
                                "%1 принадлежит %2, а база данных — %3: служба не может писать")
                               .arg(beside.filePath(), ownerOf(beside), ownerOf(info)));
            isGood = false;
        }
    }
    if (isGood)
        findings.ok(text("the files of the queue belong to %1", "файлы очереди принадлежат %1")
                        .arg(ownerOf(info)));
}

} // namespace

QList<Check> examineRights()
{
    Findings findings(u"rights"_s);
    const QFileInfo folder(QFileInfo(startIdsFile()).path());
    examineFolder(folder, findings);
    const QList<SecretFinding> secrets = checkSettingsRights();
    for (const SecretFinding &finding : secrets)
        findings.add(finding.isOutOfReach ? Check::State::Error : Check::State::Warning,
                     finding.text);
    examineOwners(folder, findings);
    return findings.checks;
}

} // namespace queuectl
