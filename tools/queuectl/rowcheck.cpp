#include "tools/queuectl/rowcheck.h"

#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

// What the columns hold on a server; SQLite takes more, and a till may move to a server.
constexpr qsizetype maxType = 64;
constexpr qsizetype maxCard = 128;
constexpr qsizetype maxStatus = 255;
constexpr int maxTimeoutSeconds = 3600;

void report(QList<Finding> &findings, bool isError, const QString &key, const QString &what)
{
    findings.append({isError, key, what});
}

QString joined(const QString &path, const QString &key)
{
    return path.isEmpty() ? key : path + u'.' + key;
}

void checkUrl(const QString &value, const QString &place, QList<Finding> &findings)
{
    const QUrl url(value, QUrl::StrictMode);
    const bool isWeb = url.scheme() == u"http" || url.scheme() == u"https";
    if (!url.isValid() || url.host().isEmpty() || !isWeb)
        report(
            findings, true, place,
            text("'%1' is no http or https address", "'%1' — не адрес http или https").arg(value));
}

void checkTimeout(const QJsonValue &value, const QString &place, QList<Finding> &findings)
{
    bool isNumber = false;
    const int seconds = value.toVariant().toInt(&isNumber);
    if (!isNumber)
        report(findings, true, place,
               text("'%1' is no number of seconds", "'%1' — не число секунд")
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
               text("the file '%1' may not be read", "нет права читать файл '%1'").arg(path));
}

bool isFileKey(const QString &key)
{
    const QString name = key.toLower();
    return (name.contains(u"cert"_s) || name == u"ssl_key"_s || name.endsWith(u"keyfile"_s))
           && !name.contains(u"passw"_s);
}

void checkValues(const QJsonObject &object, const QString &path, QList<Finding> &findings)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString place = joined(path, member.key());
        const QString name = member.key().toLower();
        const QString value = member->toString();
        if (name == u"url" && member->isString())
            checkUrl(value, place, findings);
        else if (name == u"timeout" && !member->isNull())
            checkTimeout(member.value(), place, findings);
        else if (isFileKey(name) && value.startsWith(u'/'))
            checkFile(value, place, findings);
        else if (member->isObject() && name != u"data" && name != u"body")
            checkValues(member->toObject(), place, findings);
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
                   .arg(row.type, meant.isEmpty()
                                      ? QString()
                                      : text("; is %1 meant?", "; имелось в виду %1?").arg(meant)));
    }
    findings += checkLengths(row);

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(row.body, &error);
    if (error.error != QJsonParseError::NoError) {
        const qsizetype line = row.body.left(error.offset).count('\n') + 1;
        report(findings, true, QString(),
               text("the body is no JSON, line %1: %2", "тело не JSON, строка %1: %2")
                   .arg(QString::number(line), error.errorString()));
        return findings;
    }
    if (!document.isObject()) {
        report(findings, true, QString(),
               text("the body is no JSON object", "тело не объект JSON"));
        return findings;
    }
    checkValues(document.object(), QString(), findings);
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

QStringList secretKeys(const QString & /*type*/)
{
    return {};
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
