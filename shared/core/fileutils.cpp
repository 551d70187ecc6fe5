#include "shared/core/fileutils.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace fileutils {

QByteArray readFromFile(const QString &path, QIODevice::OpenMode mode)
{
    QFile file(path);
    if (!file.open(mode))
        return {};
    return file.readAll();
}

bool writeToFile(const QString &path, const QJsonObject &object, QIODevice::OpenMode mode)
{
    const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (mode.testFlag(QIODevice::Truncate)) {
        QSaveFile file(path);
        // commit() would not notice that the disk has no space for what is still in the buffer.
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush()
               && file.commit();
    }
    QFile file(path);
    return file.open(mode) && file.write(text) == text.size() && file.flush();
}

} // namespace fileutils
