#include "shared/core/config.h"
#include "tests/fuzz/fuzz.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace {

/// Keys that the service reads, and some malformed ones.
const QStringList keys{
    u"queue:port"_s,
    u"database:name"_s,
    u"ApMindbox.Redirect:Offline.GetCustomer"_s,
    u"Loymax:uncriticalErrors"_s,
    u"Mindbox:useIdempotencyKey"_s,
    u"a"_s,
    u":"_s,
};

/// The value of a text of the file, by each getter.
void readAs(Config &config, const QString &key)
{
    const QString absent = u"\x01 no such key"_s;
    const QString text = config.getString(key, absent);

    const int given = text.toInt();
    const int number = config.getInt(key, -77);
    bool isNumber = false;
    text.toInt(&isNumber);
    fuzz::check(number == (isNumber ? given : -77), "a number reads as its text or the default");

    fuzz::check(text != absent || config.getBool(key, true), "an absent truth value");
    fuzz::check(config.getBool(key, true) == config.getBool(key, false)
                    || config.getBool(key, true),
                "a truth value turned round");

    const QStringList entries = config.getStringList(key, QString());
    for (const QString &entry : entries)
        fuzz::check(!entry.isEmpty() && entry == entry.trimmed(), "a list with loose entries");
}

} // namespace

/// A settings file, and after the separator its changed contents.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::till();
    static fuzz::MemoryFile file;
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const qsizetype cut = input.indexOf(fuzz::separator);

    Config config;
    file.setContent(cut < 0 ? input : input.left(cut));
    config.readFile(file.path(), QString());
    QStringList before;
    for (const QString &key : keys) {
        readAs(config, key);
        before.append(config.getString(key, QString()));
    }
    if (cut < 0)
        return 0;

    file.setContent(input.mid(cut + 1));
    config.readFile(file.path(), QString());
    QStringList after;
    for (const QString &key : keys)
        after.append(config.getString(key, QString()));

    // A file is accepted as a whole or not at all.
    Config fresh;
    fresh.readFile(file.path(), QString());
    QStringList alone;
    for (const QString &key : keys)
        alone.append(fresh.getString(key, QString()));
    fuzz::check(after == before || after == alone, "old and new settings got mixed");
    return 0;
}
