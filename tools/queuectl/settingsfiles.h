#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace queuectl {

/// One `key = value` line of a settings file.
struct SettingLine
{
    QString file;
    int line = 0;
    QString section;
    QString key;
    QString value;
};

/// A line, or a whole file (line 0), with something wrong about it.
struct SettingFault
{
    enum class Severity
    {
        Note,
        Warning,
        Error
    } severity = Severity::Warning;
    QString file;
    int line = 0;
    QString text;
};

struct SettingsFile
{
    QString path;
    QList<SettingLine> settings;
    QList<SettingFault> faults;
};

/// The files that the service reads, in its order.
QStringList settingsFilePaths();
/// Reads one file line by line, as Config understands it.
SettingsFile readSettingsFile(const QString &path);
/// Everything that is wrong with the settings: lines that cannot be read, keys that nobody reads,
/// values of another kind than the setting's, numbers below its smallest one.
QList<SettingFault> checkSettings();
/// The file's text with the values of secrets masked, those in comments too.
QString maskedSettings(const QString &path);

} // namespace queuectl
