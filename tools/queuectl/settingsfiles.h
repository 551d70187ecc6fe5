#pragma once

#include <QList>
#include <QMap>
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

/// The settings that the service reads, with their defaults, taken from the sample that is installed
/// with it.
class KnownSettings
{
public:
    KnownSettings();

    QStringList sections() const { return defaults.keys(); }
    QStringList keys(const QString &section) const { return defaults.value(section).keys(); }
    bool hasSection(const QString &section) const { return defaults.contains(section); }
    bool contains(const QString &section, const QString &key) const;
    QString defaultValue(const QString &section, const QString &key) const;
    /// Its keys are names from outside, such as currencies.
    static bool isOpen(const QString &section);

private:
    QMap<QString, QMap<QString, QString>> defaults;
};

/// The files that the service reads, in its order.
QStringList settingsFilePaths();
/// Reads one file line by line, as Config understands it.
SettingsFile readSettingsFile(const QString &path);
/// Everything that is wrong with the settings: lines that cannot be read, keys that nobody reads,
/// values that are no number.
QList<SettingFault> checkSettings();
/// The file's text with the values of secrets masked, those in comments too.
QString maskedSettings(const QString &path);

} // namespace queuectl
