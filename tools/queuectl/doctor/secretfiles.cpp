#include "tools/queuectl/doctor/secretfiles.h"

#include "shared/core/paths.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

bool holdsSecret(const QString &path)
{
    const QList<SettingLine> settings = readSettingsFile(path).settings;
    for (const SettingLine &line : settings) {
        if (!line.value.isEmpty()
            && (isSecretName(line.key) || maskedText(line.value) != line.value))
            return true;
    }
    return false;
}

/// Who can read the file besides its owner and root; empty for nobody.
QString furtherReaders(const QFileInfo &file, const QFileInfo &home)
{
    if (file.permission(QFile::ReadOther))
        return text("everybody on this machine", "все на этой машине");
    if (file.permission(QFile::ReadGroup) && file.groupId() == home.groupId())
        return text("the members of group %1", "члены группы %1").arg(file.group());
    return {};
}

} // namespace

QList<SecretFinding> checkSettingsRights()
{
    QList<SecretFinding> findings;
    // The owner of the folder is the account of the service.
    const QFileInfo home(QFileInfo(startIdsFile()).path());
    if (!home.isDir())
        return findings;
    const QStringList paths = settingsFilePaths();
    for (const QString &path : paths) {
        const QFileInfo file(path);
        // Root can read every file.
        const bool isReadable =
            home.ownerId() == 0 || file.permission(QFile::ReadOther)
            || (file.permission(QFile::ReadOwner) && file.ownerId() == home.ownerId())
            || (file.permission(QFile::ReadGroup) && file.groupId() == home.groupId());
        if (!isReadable) {
            findings.append(
                {true, text("%1 belongs to %2 and cannot be read by the service (chown %3)",
                            "%1 принадлежит %2, служба не может его прочитать (chown %3)")
                           .arg(path, ownerOf(file), ownerOf(home))});
            continue;
        }
        const QString readers = furtherReaders(file, home);
        if (!readers.isEmpty() && holdsSecret(path))
            findings.append(
                {false,
                 text(
                     "%1 holds a password or key that %2 can read (chown %3 and chmod 600, or move it to "
                     "queue.d/secrets.ini)",
                     "в %1 есть пароль или ключ, который могут прочитать %2 (chown %3 и chmod 600 или "
                     "перенести в queue.d/secrets.ini)")
                     .arg(path, readers, ownerOf(home))});
    }
    return findings;
}

} // namespace queuectl
