#pragma once

#include "rig/portreservation.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

#include <optional>

namespace rig {

/// Values by section and key.
using Settings = QMap<QString, QMap<QString, QString>>;

/// The settings as a file of the till has them.
QString settingsText(const Settings &settings);

/// A till: the folders that an installation has, below a root of its own, its settings, and the
/// port of the service's control interface. Throws Error when a file or a folder cannot be written.
/// Thread: the one that made it.
class Till
{
public:
    /// In a temporary folder, which goes with the object.
    Till();
    /// In this folder, which stays.
    explicit Till(const QString &root);

    /// The folder that QUEUE_ROOT has to name.
    QString root() const { return root_; }
    /// Where a file of the till, such as `/tallocash/cash/queue/ids.json`, really is.
    QString path(const QString &file) const { return root_ + file; }
    /// The database of a till without a server.
    QString databaseFile() const;

    /// The port for the service's control interface. Nobody else is given it, also while the
    /// service is down.
    quint16 controlPort() const;
    /// Section `queue` of the settings, with the control port.
    QString queueSettings(int periodSeconds = 1) const;
    /// Replaces the content of `tcash.ini`, the one file of settings.
    void setSettings(const QString &text);
    /// Writes a file of the till, its folder too. Returns its real path.
    QString write(const QString &file, const QByteArray &content);
    /// The same for several, by their names.
    void write(const QMap<QString, QString> &files);

private:
    void makeFolders();

    std::optional<QTemporaryDir> folder;
    QString root_;
    /// Most tills have no service that is asked.
    mutable std::optional<PortReservation> port;
};

} // namespace rig
