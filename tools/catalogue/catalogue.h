#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

/// The description of each message type, for the tools and the documentation. The texts are in the
/// files of `types/`, which are compiled in; tests compare them with the handlers.
namespace catalogue {

/// A key of a message's body.
struct Key
{
    /// The path from the body, with dots: `orderStatus.url`. `[]` means each element of an array,
    /// `*` any name: `urls[]`, `headers.*`. An object without keys below it may hold anything.
    QString name;
    /// `text`, `url` (of HTTP or HTTPS), `file` (a path on the till), `integer`, `number`,
    /// `boolean`, `object`, `array` or `any`. Numbers may also be written as texts.
    QString kind;
    /// Without it the message is not delivered as meant.
    bool required = false;
    /// The value that the handler uses when the key is absent. Undefined: none.
    QJsonValue defaultValue = QJsonValue(QJsonValue::Undefined);
    /// The value is shown as `***`.
    bool secret = false;
    QString about;
    QString aboutRu;
};

/// What becomes of a message that is tried, and when.
struct Outcome
{
    QString when;
    QString whenRu;
    /// `delivered`: the service did what was asked, now or before. `dropped`: the row is deleted
    /// although it did not. `kept`: the row stays.
    QString verdict;
    /// Of a kept message: what may have to be corrected first, one of `network`, `certificate`,
    /// `credentials`, `request` and `service`. Empty: the message is skipped without being tried.
    QStringList kinds;
    /// The reasons that are recorded with a message that was dropped or done before, in Russian;
    /// `*` matches any text. Of a kept message: only where `kinds` and the status of the answer do
    /// not distinguish this outcome from the others.
    QStringList reasons;
    /// Names of scenarios that show it, in the type's own file. `*` matches any text.
    QStringList scenarios;
    /// From a fragment that several types share: a type need not have each of the scenarios.
    bool isShared = false;
};

struct Type
{
    QString name;
    /// The folder of its handler and of its scenarios.
    QString group;
    /// The class of its handler.
    QString handler;
    QString about;
    QString aboutRu;
    /// A key comes before the keys below it.
    QList<Key> keys;
    /// The body may hold further keys, which are sent with it.
    bool openKeys = false;
    QJsonObject example;
    QList<Outcome> outcomes;
    /// Settings that the handler reads, as `section:key`.
    QStringList settings;
};

/// A catalogue as it was read. Each type occurs once; types with a fault are left out.
struct Catalogue
{
    QList<Type> types;
    /// What is wrong with the files, each with the file's name.
    QStringList faults;
};

/// Reads the files of a folder: `order.json` with the names of the types in their order,
/// `fragments.json` with keys and outcomes that types share, and a file for each group of types.
Catalogue readCatalogue(const QString &folder);

/// The catalogue that is compiled in, in the order of the handler table. Thread: any.
const QList<Type> &types();
/// Null for an unknown type.
const Type *find(const QString &name);

/// The key that describes `path`, where elements of arrays are written `[]`. Null when there is
/// none.
const Key *keyAt(const Type &type, const QString &path);

/// A fault of a body: a key that its handler would not read as meant.
struct Fault
{
    enum class Kind
    {
        Missing,
        Unknown,
        WrongKind,
    };

    Kind kind = Kind::Missing;
    /// As in Key::name.
    QString path;
    /// The kind that was expected; empty for an unknown key.
    QString expected;

    bool operator==(const Fault &) const = default;
};

/// Compares a body with the keys of its type, in the order of the body, missing keys first.
QList<Fault> check(const Type &type, const QJsonObject &body);

/// The body with `***` for each secret value: of keys marked as secret, of headers whose name
/// contains a word for a key, a token, a password or a session, and for passwords in addresses.
QJsonObject masked(const Type &type, const QJsonObject &body);

/// Whether the text matches a pattern of the catalogue, in which `*` matches any text.
bool fits(const QString &pattern, const QString &text);

/// The page about all types, in Markdown.
QString toMarkdown();

} // namespace catalogue
