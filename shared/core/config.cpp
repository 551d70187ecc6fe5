#include "shared/core/config.h"

#include "shared/core/singleton.h"

#include <log4qt/logmanager.h>

#include <QFile>
#include <QFileInfo>

#include <chrono>
#include <ini.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 checkIntervalMs = 100;
/// The kernel's clock for file times advances every few milliseconds.
constexpr qint64 unsettledNs = 50'000'000;

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"config"_s);
}

qint64 steadyMs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

qint64 systemNs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// The form in which getters ask for the key; a key without a section has a colon in front.
QString storedKey(const QString &key)
{
    return key.contains(u':') ? key : u':' + key;
}

/// Replaces a colon inside a key while the parser reads; the parser would end the key there.
constexpr char hiddenColon = '\x1f';

/// Passes lines to the parser and counts them, because the parser reports no line numbers.
struct LineReader
{
    const QByteArray &content;
    qsizetype position = 0;
    int line = 0;
    bool inLine = false;
    qsizetype keyEnd = -1;

    static char *next(char *buffer, int size, void *reader)
    {
        return static_cast<LineReader *>(reader)->next(buffer, size);
    }

    char *next(char *buffer, int size)
    {
        if (position >= content.size() || size < 2)
            return nullptr;
        const qsizetype newline = content.indexOf('\n', position);
        const qsizetype lineEnd = newline < 0 ? content.size() : newline + 1;
        if (!inLine) {
            ++line;
            keyEnd = findKeyEnd(QByteArrayView(content).sliced(position, lineEnd - position));
        }
        const qsizetype end = std::min<qsizetype>(lineEnd, position + size - 1);
        char *out = buffer;
        for (; position < end; ++position) {
            const char c = content[position];
            *out++ = c == ':' && position < keyEnd ? hiddenColon : c;
        }
        *out = '\0';
        inLine = end < lineEnd;
        return buffer;
    }

    /// The end of this line's key; -1 if there is no key before '='.
    qsizetype findKeyEnd(QByteArrayView text) const
    {
        const QByteArrayView trimmed = text.trimmed();
        const bool isOther =
            trimmed.startsWith('[') || trimmed.startsWith(';') || trimmed.startsWith('#');
        const qsizetype equals = text.indexOf('=');
        return isOther || equals < 0 ? -1 : position + equals;
    }
};

/// By default the parser ends a value at " ;", joins indented lines and stops at 200 bytes a line.
void setUpParser()
{
    ini_allow_inline_comments = false;
    ini_allow_multiline = false;
    ini_use_stack = false;
    ini_allow_realloc = true;
    ini_max_line = 1 << 20;
}

} // namespace

Config::~Config() = default;

void Config::setConfigsPathList(const QList<QDir> &directories, const QStringList &files)
{
    Config *config = Singleton<Config>::instance();
    const auto locked = config->state.lock();
    State &state = *locked;
    state.directories = directories;
    state.fileNames = files;
    state.files.clear();
    state.settings.clear();
    refresh(state);
    config->nextCheckMs = steadyMs() + checkIntervalMs;
}

void Config::readFile(const QString &path, const QString & /*group*/)
{
    const auto locked = state.lock();
    // The file added last has the highest precedence.
    locked->addedFiles.removeAll(path);
    locked->addedFiles.append(path);
    refresh(*locked);
}

QString Config::getString(const QString &key, const QString &defaultValue)
{
    const auto setting = find(key);
    return setting ? setting->text : defaultValue;
}

int Config::getInt(const QString &key, int defaultValue)
{
    const auto setting = find(key);
    if (!setting)
        return defaultValue;
    bool isNumber = false;
    const int value = setting->text.toInt(&isNumber);
    return isNumber ? value : rejected(key, *setting, u"не является целым числом"_s, defaultValue);
}

bool Config::getBool(const QString &key, bool defaultValue)
{
    const auto setting = find(key);
    if (!setting)
        return defaultValue;
    const QString text = setting->text.toLower();
    if (text == u"true" || text == u"yes" || text == u"on" || text == u"1")
        return true;
    if (text == u"false" || text == u"no" || text == u"off" || text == u"0")
        return false;
    return rejected(key, *setting, u"не является логическим значением"_s, defaultValue);
}

QStringList Config::getStringList(const QString &key, const QString &defaultValue)
{
    QStringList entries;
    const QStringList parts = getString(key, defaultValue).split(u',');
    for (const QString &entry : parts) {
        const QString trimmed = entry.trimmed();
        if (!trimmed.isEmpty())
            entries.append(trimmed);
    }
    return entries;
}

std::optional<Config::Setting> Config::find(const QString &key)
{
    const qint64 now = steadyMs();
    const bool isDue = now >= nextCheckMs.load(std::memory_order_relaxed);

    const auto locked = state.lock();
    if (isDue && now >= nextCheckMs.load(std::memory_order_relaxed)) {
        refresh(*locked);
        nextCheckMs.store(steadyMs() + checkIntervalMs, std::memory_order_relaxed);
    }
    const auto found = locked->settings.constFind(storedKey(key));
    if (found == locked->settings.constEnd())
        return std::nullopt;
    return *found;
}

template <typename T>
T Config::rejected(const QString &key, const Setting &setting, const QString &expected,
                   const T &defaultValue)
{
    const auto locked = state.lock();
    warnOnce(
        *locked,
        u"Файл настроек '%1', строка %2: значение '%3' параметра %4 %5, взято значение по умолчанию %6"_s
            .arg(setting.file, QString::number(setting.line), setting.text, key, expected,
                 QVariant(defaultValue).toString()));
    return defaultValue;
}

void Config::refresh(State &state)
{
    const QStringList paths = listFiles(state);

    bool isChanged = false;
    for (const QString &path : paths)
        isChanged |= update(state, path);
    for (const QString &known : state.files.keys()) {
        if (!paths.contains(known))
            isChanged |= state.files.remove(known);
    }
    if (!isChanged)
        return;

    state.settings.clear();
    for (const QString &path : paths)
        state.settings.insert(state.files.value(path).settings);
}

QStringList Config::listFiles(State &state)
{
    QStringList paths;
    QStringList missing;
    for (const QDir &directory : std::as_const(state.directories)) {
        // A QDir caches its results, so the check uses a new object.
        if (!QFileInfo(directory.path()).isReadable()) {
            // The values of its files stay in effect.
            const qsizetype count = paths.size();
            for (const QString &known : state.files.keys()) {
                if (known.startsWith(directory.path() + u'/')
                    && known.indexOf(u'/', directory.path().size() + 1) < 0)
                    paths.append(known);
            }
            if (directory.exists())
                warnOnce(state,
                         u"Каталог настроек '%1' недоступен для чтения, проверьте права"_s.arg(
                             directory.path()));
            else if (paths.size() > count)
                warnOnce(state,
                         u"Каталог настроек '%1' исчез, действуют последние значения из него"_s.arg(
                             directory.path()));
            else if (!state.missing.contains(directory.path()))
                missing.append(directory.path());
            continue;
        }
        if (!state.fileNames.isEmpty()) {
            for (const QString &name : std::as_const(state.fileNames)) {
                if (directory.exists(name))
                    paths.append(directory.filePath(name));
            }
            continue;
        }
        // Without a name filter, which QDir would compile on each call.
        const QStringList names = directory.entryList(
            QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString &name : names) {
            if (name.endsWith(u".ini"))
                paths.append(directory.filePath(name));
        }
    }
    if (!missing.isEmpty()) {
        // A till may have no settings at all.
        logger()->info(u"Каталогов настроек нет: %1"_s, missing.join(u", "_s));
        state.missing += QSet<QString>(missing.cbegin(), missing.cend());
    }
    for (const QString &path : std::as_const(state.addedFiles)) {
        paths.removeAll(path);
        paths.append(path);
    }
    return paths;
}

bool Config::update(State &state, const QString &path)
{
    struct stat status = {};
    const bool exists = ::stat(QFile::encodeName(path).constData(), &status) == 0;
    const Stamp stamp =
        exists ? Stamp{status.st_ctim.tv_sec * 1'000'000'000LL + status.st_ctim.tv_nsec,
                       status.st_size, status.st_ino}
               : Stamp{};

    const bool isNew = !state.files.contains(path);
    File &file = state.files[path];
    if (!isNew && file.stamp == stamp && !file.unsettled)
        return false;
    file.stamp = stamp;
    // A stamp in the future was made before the clock was set back; the next change gives another
    // one.
    const qint64 ageNs = systemNs() - stamp.changeTimeNs;
    file.unsettled = ageNs >= 0 && ageNs < unsettledNs;

    QFile content(path);
    if (!content.open(QIODevice::ReadOnly)) {
        setFault(file,
                 u"Не удалось прочитать файл настроек '%1': %2"_s.arg(path, content.errorString()));
        return isNew;
    }
    Settings settings;
    const int faultyLine = parse(content.readAll(), path, settings);
    if (faultyLine > 0)
        setFault(
            file,
            u"Файл настроек '%1', строка %2: ожидается '[раздел]' или 'ключ = значение' в UTF-8, %3"_s
                .arg(path, QString::number(faultyLine),
                     file.good ? u"действуют прежние значения"_s : u"строка пропущена"_s));
    else
        setFault(file, QString());
    if (faultyLine > 0 && file.good)
        return false;
    file.settings = settings;
    file.good = faultyLine == 0;
    return true;
}

/// The number of the first faulty line, or 0.
int Config::parse(const QByteArray &content, const QString &path, Settings &settings)
{
    static const bool isParserReady = (setUpParser(), true);
    Q_UNUSED(isParserReady)

    struct Target
    {
        LineReader reader;
        const QString &path;
        Settings &settings;
    } target{{content}, path, settings};

    const auto store = [](void *context, const char *section, const char *name,
                          const char *value) -> int {
        auto &to = *static_cast<Target *>(context);
        const QUtf8StringView texts[] = {section, name, value};
        for (const QUtf8StringView text : texts) {
            if (!text.isValidUtf8())
                return 0;
        }
        const QString key = QString::fromUtf8(name).replace(QLatin1Char(hiddenColon), u':');
        const QString group = QString::fromUtf8(section);
        // Such a section cannot be read: a getter splits its key at the first colon.
        if (group.contains(u':'))
            return 1;
        to.settings.insert(group + u':' + key, {QString::fromUtf8(value), to.path, to.reader.line});
        return 1;
    };
    return ini_parse_stream(LineReader::next, &target.reader, store, &target);
}

/// Logs a fault unless it was the last one logged for this file.
void Config::setFault(File &file, const QString &fault)
{
    if (!fault.isEmpty() && fault != file.fault)
        logger()->warn(fault);
    file.fault = fault;
}

void Config::warnOnce(State &state, const QString &message)
{
    if (state.warned.contains(message))
        return;
    state.warned.insert(message);
    logger()->warn(message);
}
