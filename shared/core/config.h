#pragma once

#include "shared/core/guarded.h"

#include <QDir>
#include <QHash>
#include <QSet>
#include <QStringList>

#include <atomic>
#include <optional>

/// The settings of the till. Reads every `*.ini` file of the configured directories: directories in
/// the given order, the files of one directory by name. A later value replaces an earlier one.
/// Files are UTF-8 with `[section]` and `key = value` lines; `;` and `#` begin a comment line.
///
/// A key is written `section:key` and split at its first colon; both halves are case-sensitive.
/// Each getter returns `defaultValue` for a key that no file holds.
///
/// A directory need not exist; one line at info level names the missing ones.
///
/// Changes are noticed by the first getter that runs 100 ms after the change. A file that becomes
/// unreadable or malformed keeps its last good values, and one warning names file and line. A file
/// without good values so far gives those of its lines that can be read.
///
/// Reached through Singleton<Config>. Thread: any.
class Config
{
public:
    virtual ~Config();

    /// From now on settings come from these directories. If `files` is not empty, only files of
    /// these names are read. Sets up the singleton.
    static void setConfigsPathList(const QList<QDir> &directories, const QStringList &files);

    /// Adds the file at `path`, which takes precedence over the directories. Adding it again reads
    /// it again. `group` is not used.
    virtual void readFile(const QString &path, const QString &group);
    virtual QString getString(const QString &key, const QString &defaultValue);
    /// A text that is not a number gives `defaultValue` and one warning.
    virtual int getInt(const QString &key, int defaultValue);
    /// Accepts true and false, yes and no, on and off, 1 and 0 in any case. Any other text gives
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

    /// The file's attributes; a difference means that the file must be read again.
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
        /// The stamp is too recent: another change might leave it the same.
        bool unsettled = false;
        /// The last reading had no fault.
        bool good = false;
        /// The fault as it was logged.
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
        /// Folders that the log has reported as missing.
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
