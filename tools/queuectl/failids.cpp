#include "tools/queuectl/failids.h"

#include "shared/core/fileutils.h"
#include "shared/core/paths.h"
#include "tools/queuectl/fileaccess.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace queuectl {

std::optional<int> FailIds::of(const QString &type) const
{
    const auto found = byType.constFind(type);
    return found == byType.constEnd() ? std::nullopt : std::optional<int>(*found);
}

FailIds readFailIds()
{
    FailIds result;
    const QFileInfo info(startIdsFile());
    const FileAccess access = fileAccess(info.filePath());
    result.isDenied = access == FileAccess::Denied;
    if (access != FileAccess::Readable)
        return result;
    result.savedAt = info.lastModified();
    const QByteArray text = fileutils::readFromFile(info.filePath(), QIODevice::ReadOnly);
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    for (auto entry = object.begin(); entry != object.end(); ++entry)
        result.byType.insert(entry.key(), entry.value().toInt());
    return result;
}

} // namespace queuectl
