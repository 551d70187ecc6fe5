#include "tools/stand/scenariofile.h"

#include "tools/stand/objectreader.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/scenarioreader.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

QString lineOf(const QByteArray &text, qsizetype offset)
{
    return QString::number(text.left(offset).count('\n') + 1);
}

QList<ScenarioSource> loadFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw ScenarioError(u"%1: %2"_s.arg(path, file.errorString()));
    const QByteArray text = file.readAll();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        throw ScenarioError(
            u"%1:%2: %3"_s.arg(path, lineOf(text, error.offset), error.errorString()));
    const QJsonValue content =
        document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    ObjectReader reader(content, path + u": "_s);
    reader.text(u"about"_s);
    const QJsonValue defaults =
        reader.has(u"defaults"_s) ? reader.value(u"defaults"_s) : QJsonValue(QJsonObject());
    reader.object(u"defaults"_s);
    QList<ObjectReader> scenarios = reader.objects(u"scenarios"_s);
    reader.end();
    if (scenarios.isEmpty())
        reader.complain(u"scenarios"_s, u"there must be one at least"_s);

    QList<ScenarioSource> result;
    QSet<QString> names;
    const QJsonArray entries = content.toObject().value(u"scenarios"_s).toArray();
    for (qsizetype index = 0; index < scenarios.size(); ++index) {
        const QString name = scenarios[index].neededText(u"name"_s);
        if (names.contains(name))
            scenarios[index].complain(u"name"_s, u"another scenario of the file has this name"_s);
        names.insert(name);
        const QFileInfo info(path);
        result.append(ScenarioSource(
            merged(defaults, entries.at(index)).toObject(),
            u"%1: scenarios[%2] \"%3\": "_s.arg(path).arg(index).arg(name),
            u"%1/%2: %3"_s.arg(info.dir().dirName(), info.completeBaseName(), name)));
        // Placeholders and keys are checked now, with places that only have to exist.
        Places places;
        const QStringList wanted = placeNames(result.last().peers());
        for (const QString &place : wanted)
            places.insert(place, u"1"_s);
        result.last().scenario(places);
    }
    return result;
}

} // namespace

QStringList placeNames(const QList<rig::PeerScript> &peers)
{
    QStringList result{u"root"_s, u"nobody"_s, u"nobody.port"_s};
    for (const rig::PeerScript &peer : peers)
        result += {peer.name, peer.name + u".host"_s, peer.name + u".port"_s};
    return result;
}

ScenarioSource::ScenarioSource(const QJsonObject &content, const QString &where,
                               const QString &title)
    : content(content)
    , where(where)
    , title_(title)
{
}

QString ScenarioSource::title() const
{
    return title_;
}

bool ScenarioSource::isFor(const QString &database) const
{
    const QString told = content.value(u"database"_s).toString(u"any"_s);
    return told == u"any" || told == database;
}

bool ScenarioSource::isSample() const
{
    return content.value(u"sample"_s).toBool();
}

QString ScenarioSource::type() const
{
    const QJsonValue several = content.value(u"messages"_s);
    const QJsonValue first =
        several.isArray() ? several.toArray().at(0) : content.value(u"message"_s);
    return first.toObject().value(u"type"_s).toString();
}

QList<rig::PeerScript> ScenarioSource::peers() const
{
    return readPeerKinds(content, where);
}

Scenario ScenarioSource::scenario(const Places &places) const
{
    return readScenario(expanded(content, places, where).toObject(), where, title_);
}

QList<ScenarioSource> loadScenarios(const QString &path)
{
    if (!QFileInfo(path).isDir())
        return loadFile(path);
    QStringList files;
    QDirIterator iterator(path, {u"*.json"_s}, QDir::Files, QDirIterator::Subdirectories);
    while (iterator.hasNext())
        files.append(iterator.next());
    if (files.isEmpty())
        throw ScenarioError(u"%1: there are no scenario files"_s.arg(path));
    files.sort();
    QList<ScenarioSource> result;
    for (const QString &file : std::as_const(files))
        result += loadFile(file);
    return result;
}

} // namespace stand
