#include "engine/basichandler.h"
#include "handlers/handlertable.h"
#include "handlers/payment/steadytime.h"
#include "rig/roughpeer.h"
#include "rig/till.h"
#include "shared/core/config.h"
#include "shared/core/mockfactory.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"
#include "shared/document/documentsdao.h"
#include "shared/net/tcpclient.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/playedclient.h"
#include "tools/stand/scenariofile.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <mutex>

using namespace Qt::StringLiterals;

namespace {

/// The statuses that a reply of an input can have, by its first letter: '0' and on. The first of
/// them is no answer at all.
constexpr int statuses[] = {0, 200, 201, 204, 302, 400, 401, 404, 409, 422, 429, 500, 503};
constexpr char firstLetter = '0';
/// Instead of a message of the scenarios: the input has its own.
constexpr char ownBody = '!';

/// A clock that moves by hours each time it is read.
class HastyTime : public SteadyTime
{
public:
    Moment now() const override { return Moment(std::chrono::hours(++hours)); }
    void sleepUntil(Moment) const override {}

private:
    mutable int hours = 0;
};

class CardsInMemory : public DocumentsDao
{
public:
    void updateCard(const DocumentCardRecord &) override {}
    int findCardId(const QString &, const QString &) override { return 1; }
    std::shared_ptr<DocumentCardRecord> readCard(int id, bool) override
    {
        return std::make_shared<DocumentCardRecord>(id, u"77"_s, u"operation"_s,
                                                    QVariantMap{{u"known"_s, 1}});
    }
};

class DeafTcpClient : public TcpClient
{
public:
    bool connectToServer() override { return true; }
    void disconnectFromServer() override {}
    void write(const QByteArray &) override {}
};

/// Sends the same bytes to every client and reads what the client sends until its end.
class GreetingPeer
{
public:
    int port() const { return peer.port(); }
    /// The bytes for the next client.
    void play(const QByteArray &bytes)
    {
        const std::lock_guard lock(mutex);
        greeting = bytes;
    }

private:
    QByteArray nextGreeting()
    {
        const std::lock_guard lock(mutex);
        return greeting;
    }

    std::mutex mutex;
    QByteArray greeting;
    /// Last, so that its threads end first.
    rig::RoughPeer peer{[this](rig::RoughPeer::Line &line) {
        line.send(nextGreeting());
        line.listen();
    }};
};

struct Adapter
{
    QString type;
    /// Bodies of the scenarios' messages.
    QList<QVariantMap> bodies;
};

/// Every handler, with a till around it that neither waits nor uses disk or network.
class Adapters
{
public:
    Adapters();

    const Adapter &at(char letter) const
    {
        return list.at(static_cast<quint8>(letter - firstLetter) % list.size());
    }

    fuzz::PlayedClient client;
    GreetingPeer peer;
    HandlerFactory factory{handlerTable()};

private:
    void readScenarios();
    void addSettings(const stand::Scenario &scenario);
    void standInForOpenssl();

    QList<Adapter> list;
    rig::Settings settings;
};

Adapters::Adapters()
{
    fuzz::till();
    standInForOpenssl();
    for (const HandlerRow &row : handlerTable())
        list.append({QString::fromUtf16(row.type), {}});
    readScenarios();
    for (const Adapter &adapter : std::as_const(list))
        fuzz::check(!adapter.bodies.isEmpty(), "a type without a scenario");

    MockFactory<SteadyTime>::install(std::make_shared<HastyTime>());
    MockFactory<TcpClient>::install(std::make_shared<DeafTcpClient>());
    delete Singleton<DocumentsDao>::replace(new CardsInMemory);
}

void Adapters::readScenarios()
{
    const QList<stand::ScenarioSource> sources =
        stand::loadScenarios(QStringLiteral(QUEUE_SCENARIOS));
    for (const stand::ScenarioSource &source : sources) {
        stand::Places places;
        for (const QString &name : stand::placeNames(source.peers()))
            places.insert(name, u"http://127.0.0.1:1"_s);
        places.insert(u"root"_s, fuzz::till());
        const stand::Scenario scenario = source.scenario(places);
        if (source.isSample())
            addSettings(scenario);
        for (auto file = scenario.certificates.cbegin(); file != scenario.certificates.cend();
             ++file)
            fuzz::writeFile(fuzz::till() + file.key(), file.key().toUtf8());
        for (const stand::QueuedMessage &message : scenario.messages) {
            const QVariantMap body =
                QJsonDocument::fromJson(message.body.toUtf8()).object().toVariantMap();
            for (Adapter &adapter : list) {
                if (adapter.type == message.type && !body.isEmpty()
                    && !adapter.bodies.contains(body))
                    adapter.bodies.append(body);
            }
        }
    }
    fuzz::writeFile(rootedPath(u"/tallocash/cash/conf/tcash.ini"_s),
                    rig::settingsText(settings).toUtf8());
    Config::setConfigsPathList({QDir(rootedPath(u"/tallocash/cash/conf"_s))}, {});
}

void Adapters::addSettings(const stand::Scenario &scenario)
{
    for (auto section = scenario.settings.cbegin(); section != scenario.settings.cend();
         ++section) {
        for (auto setting = section->cbegin(); setting != section->cend(); ++setting)
            settings[section.key()].insert(setting.key(), setting.value());
    }
    for (auto file = scenario.files.cbegin(); file != scenario.files.cend(); ++file)
        fuzz::writeFile(fuzz::till() + file.key(), file->toUtf8());
}

/// A tool that makes the file it is asked for, once for each certificate.
void Adapters::standInForOpenssl()
{
    const QString folder = fuzz::till() + u"/bin"_s;
    const QString tool = folder + u"/openssl"_s;
    fuzz::writeFile(tool, "#!/bin/sh\n"
                          "while [ $# -gt 0 ]; do\n"
                          "    if [ \"$1\" = -out ]; then : >\"$2\"; fi\n"
                          "    shift\n"
                          "done\n");
    QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner);
    qputenv("PATH", folder.toUtf8() + ':' + qgetenv("PATH"));
}

http::Response replyOf(const QByteArray &part)
{
    const int status = statuses[static_cast<quint8>(part.isEmpty() ? 0 : part.front() - firstLetter)
                                % std::size(statuses)];
    return status == 0 ? http::Response::failed(4, tr::Tr(u"Сервер не ответил вовремя"_s))
                       : http::Response::answered(status, part.mid(1));
}

/// Without an answer a message stays, except where the type has reasons of its own.
bool mayFinishUnanswered(const Adapter &adapter, const fuzz::PlayedClient &client)
{
    // The first sends over TCP without an answer, the second gets its answer there, and the third
    // gives up after the number of attempts in its message.
    static const QStringList ownReasons{u"dssl"_s, u"eps"_s, u"nspkec"_s};
    return client.requests() == 0 || ownReasons.contains(adapter.type);
}

} // namespace

/// The replies that one delivery gets. An input is the letter of the type, the letter of the
/// message among those of the type's scenarios, and the replies, each with the letter of its status
/// first. Where the second letter says so, the first of them is the message's body instead.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Adapters adapters;
    if (size < 2)
        return 0;
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const Adapter &adapter = adapters.at(input[0]);
    QByteArrayList parts = input.mid(2).split(fuzz::separator);

    Message message;
    message.id = 7;
    message.type = adapter.type;
    const bool isOwn = input[1] == ownBody;
    if (isOwn)
        message.body = QJsonDocument::fromJson(parts.takeFirst()).object().toVariantMap();
    else
        message.body =
            adapter.bodies.at(static_cast<quint8>(input[1] - firstLetter) % adapter.bodies.size());

    QList<http::Response> replies;
    for (const QByteArray &part : std::as_const(parts))
        replies.append(replyOf(part));
    adapters.client.play(replies);
    if (adapter.type == u"eps") {
        // The handler with its own socket: it gets the first reply as a frame.
        message.body.insert(u"host"_s, u"127.0.0.1"_s);
        message.body.insert(u"port"_s, adapters.peer.port());
        adapters.peer.play(parts.value(0).mid(1));
    }

    const std::unique_ptr<BasicHandler> handler(adapters.factory.create(adapter.type));
    const bool isFinished = handler->sendMessage(message);
    if (isFinished && !isOwn && adapters.client.answers() == 0
        && !mayFinishUnanswered(adapter, adapters.client))
        fuzz::fail(u"%1 finishes a message without an answer"_s.arg(adapter.type));
    return 0;
}
