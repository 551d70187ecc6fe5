#include "tools/queuectl/rowcheck.h"

#include "shared/core/jsonvalue.h"
#include "tools/catalogue/catalogue.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/text.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

// The sizes of the columns on a server. SQLite accepts more, but a till may move to a server.
constexpr qsizetype maxType = 64;
constexpr qsizetype maxCard = 128;
constexpr qsizetype maxStatus = 255;
constexpr int maxTimeoutSeconds = 3600;

void report(QList<Finding> &findings, bool isError, const QString &key, const QString &what)
{
    findings.append({isError, key, what});
}

void checkUrl(const QString &value, const QString &place, QList<Finding> &findings)
{
    const QUrl url(value, QUrl::StrictMode);
    const bool isWeb = url.scheme() == u"http" || url.scheme() == u"https";
    if (!url.isValid() || url.host().isEmpty() || !isWeb)
        report(findings, true, place,
               text("'%1' is not an http or https address", "'%1' — не адрес http или https")
                   .arg(value));
}

void checkTimeout(const QJsonValue &value, const QString &place, QList<Finding> &findings)
{
    bool isNumber = false;
    const int seconds = value.toVariant().toInt(&isNumber);
    if (!isNumber)
        report(findings, true, place,
               text("'%1' is not a number of seconds", "'%1' — не число секунд")
                   .arg(value.toVariant().toString()));
    else if (seconds < 0 || seconds > maxTimeoutSeconds)
        report(findings, false, place,
               text("%1 seconds is an unlikely time limit", "%1 с — странный предел времени")
                   .arg(seconds));
}

void checkFile(const QString &path, const QString &place, QList<Finding> &findings)
{
    const QFileInfo file(path);
    if (!file.isFile())
        report(findings, true, place, text("there is no file '%1'", "файла '%1' нет").arg(path));
    else if (!file.isReadable())
        report(findings, true, place,
               text("the file '%1' cannot be read", "нет права читать файл '%1'").arg(path));
}

bool isFileKey(const QString &key)
{
    const QString name = key.toLower();
    return (name.contains(u"cert"_s) || name == u"ssl_key"_s || name.endsWith(u"keyfile"_s))
           && !name.contains(u"passw"_s);
}

/// Whether the handler of the type uses this key name for another kind of value, such as a host for
/// a URL.
bool isOfOtherKind(const catalogue::Type *type, const QString &place, const QString &kind)
{
    const catalogue::Key *key = type ? catalogue::keyAt(*type, place) : nullptr;
    return key && key->kind != kind;
}

void checkValues(const catalogue::Type *type, const QJsonObject &object, const QString &path,
                 QList<Finding> &findings)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString place = memberPath(path, member.key());
        const QString name = member.key().toLower();
        const QString value = member->toString();
        if (name == u"url" && member->isString() && !isOfOtherKind(type, place, u"url"_s))
            checkUrl(value, place, findings);
        else if (name == u"timeout" && !member->isNull())
            checkTimeout(member.value(), place, findings);
        else if (isFileKey(name) && value.startsWith(u'/'))
            checkFile(value, place, findings);
        else if (member->isObject() && name != u"data" && name != u"body")
            checkValues(type, member->toObject(), place, findings);
    }
}

QString kindText(const QString &kind)
{
    struct Kind
    {
        QString name;
        const char *english;
        const char *russian;
    };
    static const Kind kinds[] = {
        {u"text"_s, "a text", "текст"},        {u"url"_s, "an address", "адрес"},
        {u"file"_s, "a path", "путь к файлу"}, {u"integer"_s, "a whole number", "целое число"},
        {u"number"_s, "a number", "число"},    {u"boolean"_s, "true or false", "true или false"},
        {u"object"_s, "an object", "объект"},  {u"array"_s, "a list", "список"},
    };
    for (const Kind &known : kinds) {
        if (known.name == kind)
            return text(known.english, known.russian);
    }
    return kind;
}

bool isReported(const QList<Finding> &findings, const QString &key)
{
    return std::any_of(findings.cbegin(), findings.cend(),
                       [&key](const Finding &finding) { return finding.key == key; });
}

/// The keys that the handler reads. An unknown key does no harm, but is often a typing error.
void checkKeys(const QString &type, const QJsonObject &body, QList<Finding> &findings)
{
    const catalogue::Type *known = catalogue::find(type);
    if (!known)
        return;
    QStringList names;
    for (const catalogue::Key &key : known->keys)
        names.append(key.name);
    const QList<catalogue::Fault> faults = catalogue::check(*known, body);
    for (const catalogue::Fault &fault : faults) {
        if (isReported(findings, fault.path))
            continue;
        switch (fault.kind) {
        case catalogue::Fault::Kind::Missing:
            report(findings, true, fault.path,
                   text("is missing, %1", "отсутствует, %1").arg(kindText(fault.expected)));
            break;
        case catalogue::Fault::Kind::WrongKind:
            report(findings, true, fault.path,
                   text("should be %1", "должно быть: %1").arg(kindText(fault.expected)));
            break;
        case catalogue::Fault::Kind::Unknown: {
            const QString meant = nearest(fault.path, names);
            report(findings, false, fault.path,
                   text("this key is not read%1", "этот ключ не читается%1")
                       .arg(meant.isEmpty()
                                ? QString()
                                : text("; did you mean %1?", "; имелось в виду %1?").arg(meant)));
            break;
        }
        }
    }
    for (const catalogue::Key &key : known->keys) {
        if (key.kind != u"file" || isReported(findings, key.name))
            continue;
        const QString path = jsonValueByPath(body, key.name).toString();
        if (path.startsWith(u'/'))
            checkFile(path, key.name, findings);
    }
}

} // namespace

QList<Finding> checkRow(const RowText &row)
{
    QList<Finding> findings;
    if (row.type.isEmpty()) {
        report(findings, true, QString(), text("the row has no type", "у строки нет типа"));
    } else if (!isDelivered(row.type)) {
        const QString meant = nearest(row.type, deliveredTypes());
        report(findings, true, QString(),
               text("the service has no handler for type '%1'%2",
                    "у службы нет обработчика типа '%1'%2")
                   .arg(row.type,
                        meant.isEmpty()
                            ? QString()
                            : text("; did you mean %1?", "; имелось в виду %1?").arg(meant)));
    }
    findings += checkLengths(row);

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(row.body, &error);
    if (error.error != QJsonParseError::NoError) {
        const qsizetype line = row.body.left(error.offset).count('\n') + 1;
        report(findings, true, QString(),
               text("the body is not JSON, line %1: %2", "тело не JSON, строка %1: %2")
                   .arg(QString::number(line), error.errorString()));
        return findings;
    }
    if (!document.isObject()) {
        report(findings, true, QString(),
               text("the body is not a JSON object", "тело не объект JSON"));
        return findings;
    }
    checkValues(catalogue::find(row.type), document.object(), QString(), findings);
    checkKeys(row.type, document.object(), findings);
    return findings;
}

QList<Finding> checkLengths(const RowText &row)
{
    QList<Finding> findings;
    const std::pair<qsizetype, qsizetype> lengths[] = {{row.type.size(), maxType},
                                                       {row.cardNumber.size(), maxCard},
                                                       {row.statusCode.size(), maxStatus}};
    for (const auto &[length, limit] : lengths) {
        if (length > limit)
            report(findings, true, QString(),
                   text("type, card or status is longer than %1 characters",
                        "тип, карта или отметка длиннее %1 знаков")
                       .arg(limit));
    }
    return findings;
}

bool hasErrors(const QList<Finding> &findings)
{
    return std::any_of(findings.cbegin(), findings.cend(),
                       [](const Finding &finding) { return finding.isError; });
}

QJsonArray toJson(const QList<Finding> &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings)
        array.append(QJsonObject{{u"state"_s, finding.isError ? u"error"_s : u"warning"_s},
                                 {u"key"_s, finding.key},
                                 {u"text"_s, finding.text}});
    return array;
}

QJsonObject withoutSecrets(const QString &type, const QJsonObject &body)
{
    const catalogue::Type *known = catalogue::find(type);
    return masked(known ? catalogue::masked(*known, body) : body).toObject();
}

QByteArray readInput(const QString &path)
{
    QFile file(path);
    const bool isOpen = path == u"-" ? file.open(stdin, QIODevice::ReadOnly)
                                     : !QFileInfo(path).isDir() && file.open(QIODevice::ReadOnly);
    if (!isOpen)
        throw Failure(NotFound,
                      text("The file %1 cannot be read: %2", "Файл %1 не читается: %2")
                          .arg(path, QFileInfo(path).isDir() ? text("it is a folder", "это каталог")
                                                             : file.errorString()));
    return file.readAll();
}

} // namespace queuectl
