#include "shared/core/compactjson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QVarLengthArray>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

/// Appending single characters is much faster than in a QString. A typical body needs no
/// allocation.
using Text = QVarLengthArray<char16_t, 1024>;

void append(Text &json, const QVariantMap &object);

void appendAsIs(Text &json, QStringView text)
{
    json.append(text.utf16(), text.size());
}

/// Rare or difficult values, such as numbers, are left to QJsonDocument.
void appendByLibrary(Text &json, const QVariant &value)
{
    const QByteArray array =
        QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson(QJsonDocument::Compact);
    appendAsIs(json, QString::fromUtf8(array.sliced(1, array.size() - 2)));
}

/// Which of the first 128 characters need no escape in a JSON string.
constexpr std::array<bool, 128> plainLetters = [] {
    std::array<bool, 128> plain{};
    for (char16_t letter = 0x20; letter < 0x7f; ++letter)
        plain[letter] = letter != u'"' && letter != u'\\';
    return plain;
}();

inline bool isPlain(char16_t letter)
{
    return letter < plainLetters.size() ? plainLetters[letter] : (letter & 0xf800) != 0xd800;
}

/// The first character from `begin` that needs an escape. Most texts have none, so the loop checks
/// four at a time.
const char16_t *endOfPlain(const char16_t *begin, const char16_t *end)
{
    while (end - begin >= 4
           && (isPlain(begin[0]) & isPlain(begin[1]) & isPlain(begin[2]) & isPlain(begin[3])))
        begin += 4;
    return std::find_if_not(begin, end, isPlain);
}

void append(Text &json, const QString &text)
{
    const auto *const begin = reinterpret_cast<const char16_t *>(text.utf16());
    const char16_t *const end = begin + text.size();
    const qsizetype start = json.size();
    json += u'"';
    for (const char16_t *run = begin; run != end;) {
        const char16_t *const stop = endOfPlain(run, end);
        json.append(run, stop - run);
        if (stop == end)
            break;
        if (*stop != u'"' && *stop != u'\\') {
            json.resize(start);
            appendByLibrary(json, text);
            return;
        }
        json += u'\\';
        json += *stop;
        run = stop + 1;
    }
    json += u'"';
}

void append(Text &json, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::LongLong:
        appendAsIs(json, QString::number(value.toLongLong()));
        return;
    case QMetaType::QString:
        append(json, *static_cast<const QString *>(value.constData()));
        return;
    case QMetaType::QVariantMap:
        append(json, *static_cast<const QVariantMap *>(value.constData()));
        return;
    case QMetaType::QVariantList: {
        json += u'[';
        bool isFirst = true;
        for (const QVariant &entry : *static_cast<const QVariantList *>(value.constData())) {
            if (!std::exchange(isFirst, false))
                json += u',';
            append(json, entry);
        }
        json += u']';
        return;
    }
    default:
        appendByLibrary(json, value);
    }
}

void append(Text &json, const QVariantMap &object)
{
    json += u'{';
    bool isFirst = true;
    for (auto member = object.cbegin(); member != object.cend(); ++member) {
        if (!std::exchange(isFirst, false))
            json += u',';
        append(json, member.key());
        json += u':';
        append(json, member.value());
    }
    json += u'}';
}

} // namespace

QString compactJson(const QVariantMap &object)
{
    Text json;
    append(json, object);
    return QStringView(json.constData(), json.size()).toString();
}
