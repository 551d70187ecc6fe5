#include "handlers/common/messagevalue.h"
#include "shared/net/httpparams.h"
#include "shared/net/preparedrequestbase.h"
#include "shared/net/serder.h"
#include "tests/fuzz/fuzz.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

/// The default answers for an absent key, and for no other.
template <typename T>
void readAs(const Message &message, const QString &key, const T &marked)
{
    const T plain = messageValue<T>(message, key);
    const T other = messageValue<T>(message, key, marked);
    if (message.body.contains(key))
        fuzz::check(plain == other, "the default stood in for a value that is there");
    else
        fuzz::check(plain == T() && other == marked, "an absent key without its default");
}

void readAll(const Message &message, const QString &key)
{
    readAs<int>(message, key, -77);
    readAs<bool>(message, key, true);
    readAs<QString>(message, key, u"default"_s);
    readAs<QByteArray>(message, key, "default");
    readAs<QUrl>(message, key, QUrl(u"http://default"_s));
    readAs<QStringList>(message, key, {u"default"_s});
    readAs<QVariantMap>(message, key, {{u"default"_s, 1}});
    readAs<QJsonObject>(message, key, {{u"default"_s, 1}});
    messageHeaders(messageValue<QVariantMap>(message, key));
    messageHeaders(messageValue<QJsonObject>(message, key).toVariantMap());
}

} // namespace

/// The body of a row, as the handlers read it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::till();
    Message message;
    message.body = QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char *>(data),
                                                      static_cast<qsizetype>(size)))
                       .object()
                       .toVariantMap();

    const QStringList keys = message.body.keys() + QStringList{u"url"_s, u"no such key"_s};
    for (const QString &key : keys)
        readAll(message, key);

    const auto params = serder::deserialize<http::Params>(message.body);
    fuzz::check(params
                    == serder::deserialize<http::Params>(QJsonObject::fromVariantMap(message.body)),
                "a request reads differently from a map and from its JSON");
    fuzz::check(!params.verb().isEmpty(), "a request without a verb");
    const auto request = serder::deserialize<tsum::PreparedRequestBase>(message.body);
    fuzz::check(request.body == params.body && request.url == params.url,
                "the two kinds of request differ in what they share");
    for (const QString &key : keys)
        serder::deserialize<http::Params>(message.body.value(key));
    return 0;
}
