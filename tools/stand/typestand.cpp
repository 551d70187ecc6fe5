#include "tools/stand/typestand.h"

#include "tools/stand/bodyvalues.h"
#include "tools/stand/screen.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTime>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

QByteArray bodyOf(const rig::Exchange &exchange)
{
    if (exchange.body.isString())
        return exchange.body.toString().toUtf8();
    if (exchange.body.isArray())
        return QJsonDocument(exchange.body.toArray()).toJson();
    return QJsonDocument(exchange.body.toObject()).toJson();
}

QString lastPartOf(const QString &target)
{
    return target.section(u'?', 0, 0).section(u'/', -1);
}

QByteArray identityOf(const rig::ArrivedRequest &request)
{
    return request.line().toUtf8() + '\n' + request.body;
}

} // namespace

TypeStand::TypeStand(const QString &scenarios, const TypeOptions &options)
    : options(options)
    , peer(options.port)
    , story(chooseStory(loadScenarios(scenarios), options.type, options.state, peer.port()))
    , met(story.list.size())
{
}

TypeStand::~TypeStand() = default;

quint16 TypeStand::port() const
{
    return peer.port();
}

void TypeStand::start()
{
    QObject::connect(&peer, &rig::ScriptedPeer::exchanged, &peer,
                     [this](const rig::Traffic &traffic) { show(traffic); });
    peer.playFreely(story.kind, story.greeting,
                    [this](const rig::ArrivedRequest &request) { return choose(request); });
    showPlan();
    if (!options.failure)
        return;
    peer.fail(*options.failure);
    if (options.failingSeconds > 0) {
        QTimer::singleShot(std::chrono::seconds(options.failingSeconds), &peer, [this] {
            peer.recover();
            print(say(u"Сбой окончен"_s, u"The failure is over"_s));
        });
    }
}

int TypeStand::stepOf(const rig::ArrivedRequest &request) const
{
    int best = -1;
    double highest = 0;
    for (qsizetype index = 0; index < story.list.size(); ++index) {
        const rig::Exchange &exchange = story.list[index];
        if (verbOf(exchange) != request.verb)
            continue;
        double score = 1;
        if (index == next)
            score += 3;
        if (index == 0)
            score += 1;
        if (lastPartOf(exchange.request) == lastPartOf(request.target))
            score += 4;
        score += 4 * likeness(bodyOf(exchange), request.body);
        // A request that comes once more is the same step of another attempt, unless the scenario
        // itself has it more than once.
        for (qsizetype other = 0; other < met.size(); ++other) {
            if (met[other] == identityOf(request) && story.list[other].request == exchange.request)
                score += 5;
        }
        if (best < 0 || score > highest) {
            best = static_cast<int>(index);
            highest = score;
        }
    }
    return best;
}

rig::Reply TypeStand::choose(const rig::ArrivedRequest &request)
{
    step = stepOf(request);
    rig::Reply reply;
    if (step >= 0) {
        reply = story.list[step].reply;
        met[step] = identityOf(request);
        next = (step + 1) % static_cast<int>(story.list.size());
    } else {
        // As some other scenario of the type has it, and without one a success.
        for (const rig::Exchange &exchange : std::as_const(story.others)) {
            if (verbOf(exchange) == request.verb && exchange.reply.status < 300) {
                reply = exchange.reply;
                break;
            }
        }
    }
    if (options.status) {
        reply = rig::Reply();
        reply.status = *options.status;
    }
    if (options.answer)
        reply.body = *options.answer;
    // Nobody is there to release it, and who waits is a person.
    reply.held = false;
    reply.delaySeconds = 0;
    return reply;
}

void TypeStand::showPlan() const
{
    print(say(u"Стенд имитирует службу типа %1 по адресу %2, сценарий: %3"_s,
              u"The stand plays the service of type %1 at %2, scenario: %3"_s)
              .arg(options.type, rig::ScriptedPeer::address(story.kind, peer.port()), story.title));
    for (qsizetype index = 0; index < story.list.size(); ++index) {
        const rig::Exchange &exchange = story.list[index];
        QString line = u"  %1. "_s.arg(index + 1);
        if (story.kind == rig::PeerScript::Kind::Tcp)
            line += rig::shortened(exchange.body.toString());
        else
            line += u"%1 -> %2 %3"_s.arg(exchange.request, QString::number(exchange.reply.status),
                                         rig::shortened(QString::fromUtf8(exchange.reply.body)));
        print(line);
    }
    print(say(u"Адреса и тела в строках могут быть любыми. Завершить: Ctrl+C"_s,
              u"The rows may have any addresses and bodies. Ctrl+C ends it"_s));
}

void TypeStand::show(const rig::Traffic &traffic) const
{
    QString line = QTime::currentTime().toString(u"HH:mm:ss"_s) + u"  "_s;
    if (story.kind == rig::PeerScript::Kind::Tcp) {
        line += u"TCP"_s;
    } else {
        line += u"%1 %2 -> "_s.arg(traffic.request.verb, traffic.request.target);
        if (traffic.isFailure)
            line += coloured(say(u"сбой"_s, u"failure"_s), false);
        else if (step < 0)
            line += say(u"нет в сценарии, %1"_s, u"not in the scenario, %1"_s).arg(traffic.status);
        else
            line += say(u"шаг %1 из %2, %3"_s, u"step %1 of %2, %3"_s)
                        .arg(step + 1)
                        .arg(story.list.size())
                        .arg(traffic.status);
    }
    print(line);
    if (const QString text = quoted(traffic); !text.isEmpty())
        print(text);
}

} // namespace stand
