#pragma once

#include "shared/net/restclient.h"

#include <QList>

namespace fuzz {

/// Plays replies in order, and after them a network failure. Installed in MockFactory<RestClient>
/// for its lifetime.
class PlayedClient : public RestClient
{
public:
    PlayedClient();
    ~PlayedClient() override;

    /// Forgets what was before.
    void play(const QList<http::Response> &replies);
    /// How many requests were made since then, and how many of them had a whole answer.
    int requests() const { return requestCount; }
    int answers() const { return answerCount; }

    void request(int verb, const QUrl &url, const QJsonDocument &body,
                 const Headers &headers) override;
    void get(const QUrl &url, const QJsonDocument &body, const Headers &headers) override;
    void send(const http::Params &params) override;
    void post(const QUrl &url, const QByteArray &body, const Headers &headers) override;
    void post(const QUrl &url, const QJsonDocument &body, const Headers &headers) override;
    void put(const QUrl &url, const QByteArray &body, const Headers &headers) override;

private:
    void next();

    QList<http::Response> script;
    int requestCount = 0;
    int answerCount = 0;
};

} // namespace fuzz
