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

/// The settings in the format of a file.
QString settingsText(const Settings &settings);

/// A till: the folders of an installation below a root folder, its settings, and the port of the
/// control interface. Throws Error when a file or a folder cannot be written.
/// Thread: the one that made it.
class Till
{
public:
    /// In a temporary folder, which is deleted with the object.
    Till();
    /// In this folder, which is kept.
    explicit Till(const QString &root);

    /// The value for QUEUE_ROOT.
    QString root() const { return root_; }
    /// The real path of a file of the till, such as `/tallocash/cash/queue/ids.json`.
    QString path(const QString &file) const { return root_ + file; }
    /// The database of a till without a server.
    QString databaseFile() const;

    /// The port for the service's control interface. It stays reserved while the service is down.
    quint16 controlPort() const;
    /// Section `queue` of the settings, with the control port.
    QString queueSettings(int periodSeconds = 1) const;
    /// Replaces the content of `tcash.ini`, the only settings file.
    void setSettings(const QString &text);
    /// Writes a file of the till and creates its folder. Returns the real path.
    QString write(const QString &file, const QByteArray &content);
    /// The same for several files, by name.
    void write(const QMap<QString, QString> &files);

private:
    void makeFolders();

    std::optional<QTemporaryDir> folder;
    QString root_;
    /// Reserved at the first use, since most tills need no control port.
    mutable std::optional<PortReservation> port;
};

} // namespace rig
