#include "tests/fuzz/fuzz.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstring>
#include <random>

using namespace Qt::StringLiterals;

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t maxSize);

namespace {

using Random = std::minstd_rand;

int below(Random &random, qsizetype limit)
{
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

QJsonValue oddValue(Random &random)
{
    static const QList<QJsonValue> values{
        QJsonValue(QJsonValue::Null),
        true,
        false,
        0,
        -1,
        1,
        2147483648.0,
        9223372036854775807.0,
        -1e300,
        0.1,
        u""_s,
        u"0"_s,
        u"-1"_s,
        u" 1"_s,
        u"99999999999999999999"_s,
        u"text"_s,
        u"%1%2%99"_s,
        QString(QChar(0)),
        QString(QChar(0xd800)),
        u"http://["_s,
        QJsonArray(),
        QJsonArray{1, u"a"_s, QJsonValue(QJsonValue::Null)},
        QJsonObject(),
        QJsonObject{{u""_s, QJsonObject{{u"a"_s, 1}}}},
    };
    return values.at(below(random, values.size()));
}

QJsonValue changed(const QJsonValue &value, Random &random)
{
    // Changes the value at a random place.
    const bool isDeeper = random() % 4 != 0;
    if (isDeeper && value.isObject() && !value.toObject().isEmpty()) {
        QJsonObject object = value.toObject();
        const QString key = object.keys().at(below(random, object.size()));
        if (random() % 8 == 0)
            object.remove(key);
        else
            object.insert(key, changed(object.value(key), random));
        return object;
    }
    if (isDeeper && value.isArray() && !value.toArray().isEmpty()) {
        QJsonArray array = value.toArray();
        const int at = below(random, array.size());
        if (random() % 8 == 0)
            array.append(array.at(at));
        else
            array.replace(at, changed(array.at(at), random));
        return array;
    }
    return oddValue(random);
}

/// A changed document, or nothing when the text is not JSON.
QByteArray changedJson(const QByteArray &text, Random &random)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (document.isNull())
        return QByteArray();
    const QJsonValue root =
        document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    const QJsonValue value = changed(root, random);
    const QJsonDocument result = value.isObject()  ? QJsonDocument(value.toObject())
                                 : value.isArray() ? QJsonDocument(value.toArray())
                                                   : document;
    return result.toJson(QJsonDocument::Compact);
}

} // namespace

/// Half of the time, a value in one of the input's JSON texts is changed, since changed bytes are
/// hardly ever JSON; otherwise libFuzzer mutates the bytes.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size,
                                               std::size_t maxSize, unsigned seed)
{
    Random random(seed);
    if (random() % 2 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);

    QByteArrayList parts =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size))
            .split(fuzz::separator);
    QByteArray &part = parts[below(random, parts.size())];
    // A text may be preceded by letters that say what it is.
    const qsizetype begin = std::min(part.indexOf('{') < 0 ? part.size() : part.indexOf('{'),
                                     part.indexOf('[') < 0 ? part.size() : part.indexOf('['));
    const QByteArray json = changedJson(part.mid(begin), random);
    if (json.isEmpty())
        return LLVMFuzzerMutate(data, size, maxSize);
    part = part.left(begin) + json;
    const QByteArray result = parts.join(fuzz::separator);
    if (static_cast<std::size_t>(result.size()) > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, result.constData(), static_cast<std::size_t>(result.size()));
    return static_cast<std::size_t>(result.size());
}
