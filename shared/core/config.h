#pragma once

#include "shared/core/guarded.h"

#include <QDir>
#include <QHash>
#include <QSet>
#include <QStringList>

#include <atomic>
#include <optional>

/// The settings of the till. Every `*.ini` file of the configured directories is read, directories
/// in the given order and the files of one directory by name; a later value replaces an earlier
/// one. Files are UTF-8 with `[section]` and `key = value` lines; `;` and `#` open a comment line.
///
/// A key is written `section:key` and split at its first colon; both halves are case-sensitive.
/// Each getter returns `defaultValue` for a key that no file holds.
///
/// No folder has to be there; one line at info level names those that are not.
///
/// A changed file is noticed by the first getter that runs 100 ms after the change. A file that has
/// become unreadable or malformed keeps its last good values, and one warning names file and line.
/// Of a file that never was good the lines that can be read count.
///
/// Reached through Singleton<Config>. Thread: any.
class Config
{
public:
    virtual ~Config();

    /// From now on settings come from these directories or, when `files` is not empty, from the
    /// files of these names in them alone. Sets up the singleton.
    static void setConfigsPathList(const QList<QDir> &directories, const QStringList &files);

    /// Adds the file at `path` on top of the directories. Read again, it replaces what it gave
    /// before. `group` is not used.
    virtual void readFile(const QString &path, const QString &group);
    virtual QString getString(const QString &key, const QString &defaultValue);
    /// A text that is no number gives `defaultValue` and one warning.
    virtual int getInt(const QString &key, int defaultValue);
    /// Knows true and false, yes and no, on and off, 1 and 0 in any case; any other text gives
    /// `defaultValue` and one warning.
    virtual bool getBool(const QString &key, bool defaultValue);
    /// Splits at commas, trims each entry and drops empty ones.
    virtual QStringList getStringList(const QString &key, const QString &defaultValue);

private:
    struct Setting
    {
        QString text;
        QString file;
        int line = 0;
    };
    using Settings = QHash<QString, Setting>;

    /// What the file system says of a file; a difference means that the file must be read again.
    struct Stamp
    {
        qint64 changeTimeNs = 0;
        qint64 size = -1;
        quint64 inode = 0;
        bool operator==(const Stamp &) const = default;
    };
    struct File
    {
        Stamp stamp;
        /// The stamp is so young that another change might not show in it.
        bool unsettled = false;
        /// The settings come from a reading without a fault.
        bool good = false;
        /// What is wrong with the file, as it was logged.
        QString fault;
        Settings settings;
    };
    struct State
    {
        QList<QDir> directories;
        QStringList fileNames;
        QStringList addedFiles;
        QHash<QString, File> files;
        Settings settings;
        QSet<QString> warned;
        /// Folders of which the log has said that they are missing.
        QSet<QString> missing;
    };

    std::optional<Setting> find(const QString &key);
    template <typename T>
    T rejected(const QString &key, const Setting &setting, const QString &expected,
               const T &defaultValue);

    static void refresh(State &state);
    static QStringList listFiles(State &state);
    static bool update(State &state, const QString &path);
    static int parse(const QByteArray &content, const QString &path, Settings &settings);
    static void setFault(File &file, const QString &fault);
    static void warnOnce(State &state, const QString &message);

    Guarded<State> state;
    std::atomic<qint64> nextCheckMs{0};
};
