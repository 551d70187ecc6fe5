#include "rig/till.h"

#include "rig/error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace rig {

QString settingsText(const Settings &settings)
{
    QString text;
    for (auto section = settings.cbegin(); section != settings.cend(); ++section) {
        text += u"\n[%1]\n"_s.arg(section.key());
        for (auto setting = section->cbegin(); setting != section->cend(); ++setting)
            text += u"%1 = %2\n"_s.arg(setting.key(), setting.value());
    }
    return text;
}

Till::Till()
    : folder(std::in_place)
    , root_(folder->path())
{
    if (!folder->isValid())
        throw Error(folder->errorString());
    makeFolders();
}

Till::Till(const QString &root)
    : root_(QDir(root).absolutePath())
{
    makeFolders();
}

QString Till::databaseFile() const
{
    return path(u"/tallocash/cash/queue/queues.db"_s);
}

quint16 Till::controlPort() const
{
    if (!port) {
        port.emplace();
        port->lend();
    }
    return port->port();
}

QString Till::queueSettings(int periodSeconds) const
{
    return u"[queue]\nport = %1\ntimeout = %2\n"_s.arg(controlPort()).arg(periodSeconds);
}

void Till::setSettings(const QString &text)
{
    write(u"/tallocash/cash/conf/tcash.ini"_s, text.toUtf8());
}

QString Till::write(const QString &name, const QByteArray &content)
{
    QFile file(path(name));
    QDir().mkpath(QFileInfo(file).path());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || file.write(content) != content.size())
        throw Error(u"%1: %2"_s.arg(file.fileName(), file.errorString()));
    return file.fileName();
}

void Till::write(const QMap<QString, QString> &files)
{
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        write(file.key(), file->toUtf8());
}

void Till::makeFolders()
{
    for (const QString &name : {u"/tallocash/cash/conf/tcash.ini.d/puppet"_s,
                                u"/tallocash/cash/queue/config/queue.d"_s, u"/tmp"_s}) {
        if (!QDir().mkpath(path(name)))
            throw Error(u"%1: cannot be made"_s.arg(path(name)));
    }
}

} // namespace rig
