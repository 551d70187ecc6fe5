#include "tests/fuzz/playedclient.h"

#include "shared/core/mockfactory.h"
#include "tests/fuzz/fuzz.h"

using namespace Qt::StringLiterals;

namespace fuzz {

namespace {

/// No delivery makes as many requests; one that does would never end.
constexpr int maxRequests = 10'000;

} // namespace

PlayedClient::PlayedClient()
{
    MockFactory<RestClient>::install(std::shared_ptr<RestClient>(this, [](RestClient *) {}));
}

PlayedClient::~PlayedClient()
{
    MockFactory<RestClient>::install(nullptr);
}

void PlayedClient::play(const QList<http::Response> &replies)
{
    script = replies;
    requestCount = 0;
    answerCount = 0;
    setResponse({});
}

void PlayedClient::request(int, const QUrl &, const QJsonDocument &, const Headers &)
{
    next();
}

void PlayedClient::get(const QUrl &, const QJsonDocument &, const Headers &)
{
    next();
}

void PlayedClient::send(const http::Params &)
{
    next();
}

void PlayedClient::post(const QUrl &, const QByteArray &, const Headers &)
{
    next();
}

void PlayedClient::post(const QUrl &, const QJsonDocument &, const Headers &)
{
    next();
}

void PlayedClient::put(const QUrl &, const QByteArray &, const Headers &)
{
    next();
}

void PlayedClient::next()
{
    static const http::Response noNetwork =
        http::Response::failed(1, tr::Tr(u"Сервер отклонил соединение"_s));
    check(++requestCount < maxRequests, "a delivery without an end");
    setResponse(script.isEmpty() ? noNetwork : script.takeFirst());
    if (hasResponse())
        ++answerCount;
}

} // namespace fuzz
