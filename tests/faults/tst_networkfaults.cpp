#include "rig/certificates.h"
#include "rig/deafport.h"
#include "rig/loopbackserver.h"
#include "rig/nginxserver.h"
#include "rig/roughpeer.h"
#include "rig/waiting.h"
#include "shared/net/restclient.h"
#include "tests/faults/form.h"
#include "tests/faults/till.h"
#include "tests/support/testsettings.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QProcess>
#include <QtTest>

#include <future>
#include <variant>

using namespace Qt::StringLiterals;
using rig::Certificates;
using rig::DeafPort;
using rig::LoopbackServer;
using rig::NginxServer;
using rig::RoughPeer;

namespace {

using Line = RoughPeer::Line;

/// The timeout of an exchange that must time out, and of one that must end by itself, also on a
/// busy machine.
constexpr int timeoutSeconds = 1;
constexpr int ampleSeconds = 10;
/// How much longer than its timeout an exchange may take on a busy machine.
constexpr int slackMs = 4000;
constexpr int secondMs = 1000;
constexpr qint64 gibibyte = 1024LL * 1024 * 1024;
constexpr qsizetype chunkSize = 64 * 1024;
/// The limits of an answer, compressed and unpacked.
constexpr qsizetype maxBodySize = 16 * 1024 * 1024;
/// Slightly below the limits of a handler and of the client.
constexpr qsizetype readSize = 4 * 1024 * 1024 - 1024;
constexpr qsizetype allowedSize = 15 * 1024 * 1024;
/// The limit of resident memory while the service reads one answer, in KiB: one with small JSON
/// objects takes about thirty times the size of its text.
constexpr qint64 documentMemoryLimit = 192 * 1024;
/// The same for a document of the till of 16 MiB.
constexpr qint64 tillDocumentMemoryLimit = 288 * 1024;

// Values of QNetworkReply::NetworkError, and of an exchange without a fault.
constexpr int success = 0;
constexpr int refused = 1;
constexpr int closedEarly = 2;
constexpr int timedOut = 4;
constexpr int tlsFailed = 6;
constexpr int unknownFailure = 99;
constexpr int redirected = 299;

struct Refused
{
};
struct Deaf
{
};
/// TLS with a certificate of its own.
using Tls = NginxServer::Setup;
/// Sends plain bytes to a client that expects TLS.
struct NoTls
{
    RoughPeer::Conduct conduct;
};
using Manner = std::variant<RoughPeer::Conduct, Refused, Deaf, Tls, NoTls>;

/// One way in which a peer can misbehave, and the expected judgement of the client.
struct Fault
{
    QByteArray name;
    Manner manner;
    int errorCode = success;
    /// The status that arrived.
    int status = 0;
    bool isLarge = false;
    int requestBytes = 2;

    int timeout() const { return errorCode == timedOut ? timeoutSeconds : ampleSeconds; }
    bool isNetworkError() const { return errorCode != success && errorCode < 200; }
};

/// A fault that lasts.
struct Scene
{
    explicit Scene(const Fault &fault);

    std::unique_ptr<RoughPeer> peer;
    std::unique_ptr<DeafPort> deaf;
    std::unique_ptr<NginxServer> nginx;
    QUrl url;
};

Scene::Scene(const Fault &fault)
{
    const auto plain = [](int port, const QString &scheme = u"http"_s) {
        return QUrl(u"%1://127.0.0.1:%2/"_s.arg(scheme, QString::number(port)));
    };
    if (const auto *conduct = std::get_if<RoughPeer::Conduct>(&fault.manner)) {
        peer = std::make_unique<RoughPeer>(*conduct);
        url = plain(peer->port());
    } else if (const auto *noTls = std::get_if<NoTls>(&fault.manner)) {
        peer = std::make_unique<RoughPeer>(noTls->conduct);
        url = plain(peer->port(), u"https"_s);
    } else if (const auto *tls = std::get_if<Tls>(&fault.manner)) {
        nginx = std::make_unique<NginxServer>(*tls);
        url = nginx->url();
    } else if (std::holds_alternative<Deaf>(fault.manner)) {
        deaf = std::make_unique<DeafPort>();
        url = plain(deaf->port());
    } else {
        url = plain(LoopbackServer::unusedPort());
    }
}

/// Reads the request, sends this and keeps the connection open.
RoughPeer::Conduct says(const QByteArray &bytes)
{
    return [bytes](Line &line) {
        if (line.readRequest() && line.send(bytes))
            line.listen();
    };
}

RoughPeer::Conduct saysAndCloses(const QByteArray &bytes)
{
    return [bytes](Line &line) {
        if (line.readRequest())
            line.send(bytes);
    };
}

RoughPeer::Conduct saysAndResets(const QByteArray &bytes)
{
    return [bytes](Line &line) {
        if (!line.readRequest() || !line.send(bytes))
            return;
        // A reset discards what the other side has not read, so it gets time to read.
        line.idle(100);
        line.reset();
    };
}

RoughPeer::Conduct saysAndDrips(const QByteArray &bytes, const QByteArray &dripped)
{
    return [bytes, dripped](Line &line) {
        if (line.readRequest() && line.send(bytes))
            line.drip(dripped, secondMs);
    };
}

RoughPeer::Conduct saysAndFloods(const QByteArray &bytes, const QByteArray &flood, qint64 total)
{
    return [bytes, flood, total](Line &line) {
        if (line.readRequest() && line.send(bytes) && line.flood(flood, total))
            line.listen();
    };
}

QByteArray headers(int count)
{
    QByteArray lines;
    for (int i = 0; i < count; ++i)
        lines += "X-Header-" + QByteArray::number(i) + ": " + QByteArray::number(i) + "\r\n";
    return lines;
}

/// The output of a shell command for `input`.
QByteArray shellOutput(const QString &command, const QByteArray &input = {})
{
    QProcess shell;
    shell.start(u"sh"_s, {u"-c"_s, command});
    shell.write(input);
    shell.closeWriteChannel();
    if (!shell.waitForFinished(-1) || shell.exitCode() != 0)
        qFatal("%s: %s", qPrintable(command), shell.readAllStandardError().constData());
    return shell.readAllStandardOutput();
}

QByteArray zipped(const QByteArray &bytes)
{
    return shellOutput(u"gzip"_s, bytes);
}

/// This many zero bytes, compressed with `gzip` once or twice.
QByteArray bomb(qint64 bytes, int layers)
{
    return shellOutput(u"head -c %1 /dev/zero"_s.arg(bytes) + u" | gzip -9"_s.repeated(layers));
}

QByteArray packed(const QByteArray &encoding, const QByteArray &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Encoding: " + encoding
           + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

/// The same on each run, and not HTTP.
QByteArray noise(qsizetype size)
{
    QRandomGenerator generator(42);
    QByteArray bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(generator.bounded(256));
    return bytes;
}

const QByteArray ok = "HTTP/1.1 200 OK\r\n";
const QByteArray okEmpty = ok + "Content-Length: 0\r\n\r\n";
const QByteArray okHalf = ok + "Content-Length: 20\r\n\r\n0123456789";
const QByteArray okChunked = ok + "Transfer-Encoding: chunked\r\n\r\n";

/// Certificates for the peers, made once.
struct Papers
{
    Certificates certificates;
    Certificates::Identity authority = certificates.authority(u"Till CA"_s);
    Certificates::Identity stranger = certificates.authority(u"Another CA"_s);
    Certificates::Identity middle = certificates.intermediate(authority, u"Middle CA"_s);
    QStringList hosts{u"IP:127.0.0.1"_s};
    Certificates::Identity good = certificates.server(authority, hosts);
    Certificates::Identity revoked = certificates.server(authority, hosts);
    Certificates::Identity farther = certificates.server(middle, hosts);

    Certificates::Identity chained(const QStringList &chain)
    {
        return {certificates.chain(chain), farther.key};
    }
};

QList<Fault> plainFaults()
{
    const auto silent = [](Line &line) {
        line.listen();
    };
    const auto closes = [](Line &) {
    };
    const auto resets = [](Line &line) {
        line.reset();
    };
    const auto neverReads = [](Line &line) {
        line.idle();
    };
    const qint64 bombSize = faults::count(128, 1024) * (gibibyte / 1024);
    const QByteArray x(chunkSize, 'x');
    const QByteArray chunk = QByteArray::number(chunkSize, 16) + "\r\n" + x + "\r\n";
    const QByteArray gigabyte = "Content-Length: " + QByteArray::number(gibibyte) + "\r\n\r\n";
    // More than the system of the peer buffers.
    constexpr int manyBytes = 1024 * 1024;
    // Compression does not make it smaller.
    const QByteArray largeGzip = zipped(noise(maxBodySize - 64 * 1024));
    const QByteArray brokenGzip = QByteArray::fromHex("1f8b0800000000000003") + "no gzip at all";

    // clang-format off
    return {
        {"refuses",                             Refused{},                                             refused},
        {"leaves the handshake unanswered",     Deaf{},                                                timedOut},
        {"accepts and sends nothing",           silent,                                                timedOut},
        {"does not read the request",           neverReads,                                            timedOut, 0, false, manyBytes},
        {"stalls within the status line",       says("HTTP/1.1 20"),                                   timedOut},
        {"stalls within the headers",           says(ok + "Content-Le"),                               timedOut, 200},
        {"stalls before the body",              says(ok + "Content-Length: 20\r\n\r\n"),               timedOut, 200},
        {"stalls within the body",              says(okHalf),                                          timedOut, 200},
        {"stalls within a chunk",               says(okChunked + "20\r\n0123"),                        timedOut, 200},
        {"stalls before the last chunk",        says(okChunked + "4\r\n0123\r\n"),                     timedOut, 200},
        {"a byte a second from the start",      saysAndDrips({}, okEmpty),                             timedOut},
        {"a byte a second of headers",          saysAndDrips(ok, "A: b\r\n"),                          timedOut, 200},
        {"a byte a second of body",             saysAndDrips(okHalf, "x"),                             timedOut, 200},
        {"an interim answer for ever",          saysAndDrips({}, "HTTP/1.1 100 Continue\r\n\r\n"),     timedOut},
        {"resets at once",                      resets,                                                closedEarly},
        {"resets after the request",            saysAndResets({}),                                     closedEarly},
        {"resets within the headers",           saysAndResets(ok + "Conte"),                           closedEarly, 200},
        {"resets within the body",              saysAndResets(okHalf),                                 closedEarly, 200},
        {"closes at once",                      closes,                                                closedEarly},
        {"closes after the request",            saysAndCloses({}),                                     closedEarly},
        {"closes within the status line",       saysAndCloses("HTTP/1.1 20"),                          closedEarly},
        {"closes within the headers",           saysAndCloses(ok + "Content-Length: 0\r\n"),           closedEarly, 200},
        {"closes within the body",              saysAndCloses(okHalf),                                 closedEarly, 200},
        {"closes within a chunk",               saysAndCloses(okChunked + "20\r\n0123"),               closedEarly, 200},
        {"noise",                               says(noise(4096)),                                     unknownFailure},
        {"another protocol",                    says("SSH-2.0-OpenSSH_9.2\r\n"),                       unknownFailure},
        {"no status line",                      saysAndCloses("<html>hello</html>"),                   unknownFailure},
        {"a status that is not a number",       saysAndCloses("HTTP/1.1 abc OK\r\n\r\n"),              unknownFailure},
        {"a status of 600",                     says("HTTP/1.1 600 What\r\nContent-Length: 0\r\n\r\n"), 499, 600},
        {"a negative length",                   says(ok + "Content-Length: -5\r\n\r\n"),               unknownFailure, 200},
        {"a length past 64 bits",               says(ok + "Content-Length: 99999999999999999999\r\n\r\n"), timedOut, 200},
        {"a chunk that is not a number",        says(okChunked + "xyz\r\n"),                           unknownFailure, 200},
        {"a chunk past 64 bits",                says(okChunked + "fffffffffffffffff\r\n"),             unknownFailure, 200},
        {"an unknown content coding",           says(packed("zebra", "abc")),                          success, 200},
        {"a broken compressed body",            says(packed("gzip", brokenGzip)),                      success, 200},
        {"a compressed body cut off",           says(packed("gzip", largeGzip.first(1000))),           closedEarly, 200},
        {"a redirect to itself",                says("HTTP/1.1 302 Found\r\nLocation: /\r\nContent-Length: 0\r\n\r\n"), redirected, 302},
        {"answers twice",                       says(okEmpty + okEmpty),                               success, 200},
        {"1 GB without a line end",             saysAndFloods({}, x, gibibyte),                        unknownFailure, 0, true},
        {"100,000 headers",                     says(ok + headers(100'000) + "Content-Length: 0\r\n\r\n"), unknownFailure, 200, true},
        {"a header of 1 GB",                    saysAndFloods(ok + "A: ", x, gibibyte),                unknownFailure, 200, true},
        {"interim answers of 1 GB",             saysAndFloods({}, QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(2000), gibibyte), unknownFailure, 0, true},
        {"a body of 1 GB",                      saysAndFloods(ok + gigabyte, x, gibibyte),             unknownFailure, 200, true},
        {"a body of 1 GB in chunks",            saysAndFloods(okChunked, chunk, gibibyte),             unknownFailure, 200, true},
        {"a body of 1 GB up to the close",      saysAndFloods(ok + "\r\n", x, gibibyte),               unknownFailure, 200, true},
        {"a trailer of 1 GB",                   saysAndFloods(okChunked + "0\r\n", QByteArray("A: b\r\n").repeated(10'000), gibibyte), unknownFailure, 200, true},
        {"the largest compressed body",         says(packed("gzip", largeGzip)),                       success, 200, true},
        {"the largest body, twice packed",      says(packed("gzip, gzip", zipped(largeGzip))),         success, 200, true},
        {"a gzip bomb",                         says(packed("gzip", bomb(bombSize, 1))),               unknownFailure, 200, true},
        {"a gzip bomb in a gzip bomb",          says(packed("gzip, gzip", bomb(bombSize, 2))),         unknownFailure, 200, true},
    };
    // clang-format on
}

QList<Fault> tlsFaults(Papers &papers)
{
    const auto silent = [](Line &line) {
        line.listen();
    };
    const auto &[leaf, middle, root] = std::tie(
        papers.farther.certificate, papers.middle.certificate, papers.authority.certificate);
    const auto expired = papers.certificates.expiredServer(papers.authority, papers.hosts);
    const auto otherName = papers.certificates.server(papers.authority, {u"DNS:bank.example"_s});
    const auto unknown = papers.certificates.server(papers.stranger, papers.hosts);
    const QString staple = papers.certificates.revoke(papers.authority, papers.revoked);
    const auto says_ = [](const QByteArray &bytes) {
        return [bytes](Line &line) {
            if (line.send(bytes))
                line.listen();
        };
    };
    // clang-format off
    return {
        {"TLS: silent in the handshake",        NoTls{silent},                                         timedOut},
        {"TLS: noise in the handshake",         NoTls{says_(noise(4096))},                             tlsFailed},
        {"TLS: HTTP in the handshake",          NoTls{says_(okEmpty)},                                 tlsFailed},
        {"TLS: a good certificate",             Tls{papers.good, {}},                                  success, 200},
        {"TLS: an expired certificate",         Tls{expired, {}},                                      tlsFailed},
        {"TLS: a certificate of another name",  Tls{otherName, {}},                                    tlsFailed},
        {"TLS: a self-signed certificate",      Tls{papers.stranger, {}},                              tlsFailed},
        {"TLS: an unknown authority",           Tls{unknown, {}},                                      tlsFailed},
        {"TLS: a chain without its middle",     Tls{papers.chained({leaf}), {}},                       tlsFailed},
        {"TLS: a chain in reversed order",      Tls{papers.chained({leaf, root, middle}), {}},         success, 200},
        // A client would have to ask the authority, which this one does not.
        {"TLS: a revoked certificate",          Tls{papers.revoked, {}, u"TLSv1.2 TLSv1.3"_s, staple}, success, 200},
        {"TLS 1.0",                             Tls{papers.good, {}, u"TLSv1"_s},                      tlsFailed},
        {"TLS 1.1",                             Tls{papers.good, {}, u"TLSv1.1"_s},                    tlsFailed},
    };
    // clang-format on
}

/// The text that the log must contain for an exchange that ended so.
QString textOf(int errorCode)
{
    switch (errorCode) {
    case success:
        return u"200"_s;
    case refused:
        return u"отклонил соединение"_s;
    case closedEarly:
        return u"закрыл соединение до конца ответа"_s;
    case timedOut:
        return u"не ответил за %1 сек."_s.arg(timeoutSeconds);
    case tlsFailed:
        return u"ертификат|ащищённое соединение"_s;
    default:
        return {};
    }
}

/// The types whose messages hold a whole prepared request with a timeout.
const QStringList types{
    u"heineken"_s,           u"abmloyalty"_s,        u"customeraddress"_s, u"nochange"_s,
    u"winelabbonus"_s,       u"winelabsoftcheque"_s, u"excisemark"_s,      u"markdown"_s,
    u"partialreservation"_s, u"softcheck"_s,         u"onlinecheck"_s,     u"deferredcheck"_s,
};

/// Those of them that any complete answer finishes; the others keep the message after any fault of
/// the exchange.
const QStringList typesForAnyAnswer{u"softcheck"_s, u"onlinecheck"_s, u"deferredcheck"_s};

QJsonObject request(const QUrl &url, int timeout = ampleSeconds, int bytes = 2)
{
    const QJsonObject whole{{u"text"_s, QString(bytes, u'x')}};
    return {{u"url"_s, url.toString()},
            {u"headers"_s, QJsonObject()},
            {u"body"_s, whole},
            {u"timeout"_s, timeout}};
}

bool isKept(const QString &type, const Fault &fault)
{
    return typesForAnyAnswer.contains(type) ? fault.isNetworkError() : fault.errorCode != success;
}

} // namespace

/// Peers with every kind of fault: each exchange ends within its timeout, is judged correctly, and
/// keeps the service within its memory limit.
class TestNetworkFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void restClient_data();
    void restClient();
    void service();
    void lateSecondAnswer();
    void closesKeptConnections_data();
    void closesKeptConnections();
    void strangeBodies_data();
    void strangeBodies();
    void largeDocuments();
    void tcpPeers();
    void certificatesStayApart();

private:
    struct Outcome
    {
        http::Response response;
        qint64 elapsedMs = 0;
    };

    void wave(faults::Till &till, const QList<Fault> &faults);

    Papers papers;
    QList<Fault> faults;
    std::vector<std::future<Outcome>> outcomes;
    std::vector<std::unique_ptr<Scene>> scenes;
    std::unique_ptr<TestSettings> settings;
    /// One service reads all strange bodies, one after another.
    std::unique_ptr<faults::Till> bodiesTill;
    int exchanges = 0;
};

void TestNetworkFaults::initTestCase()
{
    // The system's settings would refuse old protocols before the client does.
    qputenv("OPENSSL_CONF", papers.certificates
                                .file("openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\n"
                                      "system_default = lax\n[lax]\nMinProtocol = TLSv1\n"
                                      "CipherString = DEFAULT:@SECLEVEL=0\n")
                                .toUtf8());
    settings = std::make_unique<TestSettings>(
        u"[network]\ncaFile = %1\n"_s.arg(papers.authority.certificate));
    faults = plainFaults() + tlsFaults(papers);
    for (const Fault &fault : faults)
        scenes.push_back(std::make_unique<Scene>(fault));
    // All at once: most of them take as long as their timeout.
    for (qsizetype i = 0; i < faults.size(); ++i) {
        const QUrl url = scenes[static_cast<std::size_t>(i)]->url;
        outcomes.push_back(std::async(std::launch::async, [url, timeout = faults.at(i).timeout(),
                                                           size = faults.at(i).requestBytes] {
            RestClient client;
            client.setTimeout(timeout);
            QElapsedTimer timer;
            timer.start();
            client.post(url, QByteArray(size, 'x'), {});
            return Outcome{client.response(), timer.elapsed()};
        }));
    }
}

void TestNetworkFaults::restClient_data()
{
    QTest::addColumn<int>("index");
    for (qsizetype i = 0; i < faults.size(); ++i)
        QTest::newRow(faults.at(i).name.constData()) << static_cast<int>(i);
}

void TestNetworkFaults::restClient()
{
    QFETCH(int, index);
    const Fault &fault = faults.at(index);
    const Outcome outcome = outcomes[static_cast<std::size_t>(index)].get();
    scenes[static_cast<std::size_t>(index)].reset();

    QVERIFY2(
        outcome.response.errorCode == fault.errorCode && outcome.response.status == fault.status,
        qPrintable(u"error %1, status %2: %3"_s.arg(QString::number(outcome.response.errorCode),
                                                    QString::number(outcome.response.status),
                                                    outcome.response.errorText.ru())));
    QCOMPARE(outcome.response.networkError, fault.isNetworkError());
    QVERIFY2(outcome.elapsedMs < fault.timeout() * secondMs + slackMs,
             qPrintable(QString::number(outcome.elapsedMs)));
    if (fault.errorCode == timedOut)
        QVERIFY(outcome.elapsedMs >= timeoutSeconds * secondMs - 10);
}

void TestNetworkFaults::wave(faults::Till &till, const QList<Fault> &wave)
{
    std::vector<std::unique_ptr<Scene>> stage;
    QList<int> ids;
    QList<int> ends;
    QList<qsizetype> exchangesBefore;
    for (qsizetype i = 0; i < wave.size(); ++i) {
        stage.push_back(std::make_unique<Scene>(wave.at(i)));
        ends.append(till.service().log().ends(types.at(i)));
        exchangesBefore.append(till.exchangeTimes(types.at(i)).size());
        ids.append(till.put(types.at(i), request(stage.back()->url, wave.at(i).timeout(),
                                                 wave.at(i).requestBytes)));
        till.ask("/start/" + types.at(i).toUtf8() + "/0");
    }
    // A refused row is retried in every second pass: the pass between finds no row after it.
    const int passes = faults::count(1, 5);
    for (qsizetype i = 0; i < wave.size(); ++i) {
        const Fault &fault = wave.at(i);
        const QString &type = types.at(i);
        const bool kept = isKept(type, fault);
        const QByteArray label = fault.name + " (" + type.toUtf8() + ')';
        QVERIFY2(till.waitForEnds(type, ends.at(i) + (kept ? 2 * passes - 1 : 1)),
                 label.constData());
        if (!kept)
            QVERIFY2(till.waitUntilRemoved(ids.at(i)), label.constData());
        QVERIFY2(till.isIn(ids.at(i)) == kept, label.constData());
        till.remove(ids.at(i));

        QStringList lines = till.lines(type).filter(QRegularExpression(u"\\AОтвет: "_s));
        lines.remove(0, exchangesBefore.at(i));
        QVERIFY2(lines.join(u'\n').contains(QRegularExpression(textOf(fault.errorCode))),
                 (label + ": " + lines.join(u'\n').toUtf8()).constData());
        const QList<int> times = till.exchangeTimes(type).mid(exchangesBefore.at(i));
        QVERIFY2(times.size() >= (kept ? passes : 1), label.constData());
        exchanges += static_cast<int>(times.size());
        for (const int time : times)
            QVERIFY2(time < fault.timeout() * secondMs + slackMs,
                     (label + ": " + QByteArray::number(time)).constData());
    }
    // Exchanges still in progress must not run into the next wave.
    QVERIFY(rig::waitUntil([&till] { return till.service().log().isIdle(); }));
    if (faults::isMemoryJudged())
        QVERIFY2(
            till.peakMemory() < faults::memoryLimit,
            qPrintable(
                u"%1: %2 KiB"_s.arg(QString::fromUtf8(wave.first().name)).arg(till.peakMemory())));
}

void TestNetworkFaults::service()
{
    faults::Till till(u"[network]\ncaFile = %1\n"_s.arg(papers.authority.certificate));
    till.start();
    const qint64 memoryBefore = till.peakMemory();

    // Each type delivers when nothing is wrong.
    wave(till, QList<Fault>(types.size(), Fault{"well-behaved", says(okEmpty), success, 200}));
    QList<Fault> together;
    for (const Fault &fault : std::as_const(faults)) {
        if (fault.isLarge) {
            wave(till, {fault});
            continue;
        }
        together.append(fault);
        if (together.size() == types.size())
            wave(till, std::exchange(together, {}));
        if (QTest::currentTestFailed())
            return;
    }
    wave(till, together);
    wave(till, QList<Fault>(types.size(), Fault{"well-behaved", says(okEmpty), success, 200}));

    QVERIFY(till.service().isRunning());
    qInfo(
        "network faults: %lld kinds of peers, %d exchanges of the service, memory %lld KiB before, "
        "%lld KiB at most",
        static_cast<long long>(faults.size()), exchanges, static_cast<long long>(memoryBefore),
        static_cast<long long>(till.peakMemory()));
    if (!faults::isMemoryJudged())
        qInfo("memory is not judged under a sanitizer");
}

/// A peer sends more bytes after its answer was read. The next delivery over this connection must
/// not take them for its own answer.
void TestNetworkFaults::lateSecondAnswer()
{
    std::atomic<int> requests{0};
    RoughPeer peer([&requests](Line &line) {
        while (line.readRequest()) {
            const bool isFirst = ++requests == 1;
            if (!line.send(isFirst ? okEmpty
                                   : QByteArray("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n")))
                return;
            if (isFirst && line.idle(100))
                line.send(okEmpty);
        }
    });
    const QUrl url(u"http://127.0.0.1:%1/"_s.arg(peer.port()));
    RestClient client;
    client.post(url, QByteArray("first"), {});
    QCOMPARE(client.statusCode(), 200);
    QTRY_COMPARE(peer.sentBytes(), 2 * okEmpty.size());
    client.post(url, QByteArray("second"), {});
    QCOMPARE(client.statusCode(), 500);
    QCOMPARE(requests.load(), 2);
}

void TestNetworkFaults::closesKeptConnections_data()
{
    QTest::addColumn<int>("afterMs");
    QTest::addColumn<int>("mostLost");
    QTest::newRow("with the answer") << 0 << 0;
    // The request that is sent at that moment is lost; from then on the service avoids kept
    // connections to this host.
    QTest::newRow("soon after it") << 1 << 1;
    QTest::newRow("a little later") << 5 << 1;
}

/// A server that closes the connection after each answer without announcing it. The rows of a type
/// are delivered nevertheless.
void TestNetworkFaults::closesKeptConnections()
{
    QFETCH(int, afterMs);
    QFETCH(int, mostLost);
    constexpr int rows = 20;
    std::atomic<int> answers{0};
    RoughPeer peer([&answers, afterMs](Line &line) {
        if (!line.readRequest())
            return;
        ++answers;
        if (afterMs == 0) {
            line.sendLast(okEmpty);
            line.listen();
        } else if (line.send(okEmpty)) {
            line.idle(afterMs);
        }
    });
    const QString type = u"heineken"_s;
    faults::Till till;
    for (int row = 0; row < rows; ++row)
        till.put(type, request(QUrl(u"http://127.0.0.1:%1/"_s.arg(peer.port()))));
    till.start();
    QVERIFY(till.waitForEnds(type, 1));
    const auto lost = [&] {
        return till.lines(type).filter(u"Ошибка при отправке сообщения"_s);
    };
    QVERIFY2(mostLost > 0 || till.ids().isEmpty(), qPrintable(lost().join(u'\n')));
    QVERIFY(rig::waitUntil([&till] { return till.ids().isEmpty(); }));
    QVERIFY2(lost().size() <= mostLost, qPrintable(lost().join(u'\n')));
    QCOMPARE(answers.load(), rows);
}

void TestNetworkFaults::strangeBodies_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    const QString xml = u"manzana2019"_s;
    const QString json = u"markdown"_s;
    const auto nested = [](qsizetype depth) {
        return "<e>" + QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth)
               + "</e>";
    };
    QByteArray entities = "<!DOCTYPE e [<!ENTITY a0 \"xxxxxxxxxxxxxxxx\">";
    for (int i = 1; i < 30; ++i) {
        const QByteArray inner = "&a" + QByteArray::number(i - 1) + ';';
        entities += "<!ENTITY a" + QByteArray::number(i) + " \"" + inner + inner + "\">";
    }
    entities += "]><e><ReturnCode>&a29;</ReturnCode></e>";
    const QByteArray outside = "<!DOCTYPE e [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
                               "<e><ReturnCode>1</ReturnCode><Message>&a;</Message></e>";
    const auto ownAttributes = [](qsizetype size) {
        QByteArray attributes;
        for (int i = 0; attributes.size() < size - 16; ++i)
            attributes += 'a' + QByteArray::number(i) + "='' ";
        return attributes;
    };
    // The largest answer that a handler reads, and the largest that the client accepts.
    for (const auto &[size, words] :
         {std::pair{readSize, "4 MiB"}, std::pair{allowedSize, "15 MiB"}}) {
        const auto row = [words = words](const char *name) -> QTestData & {
            return QTest::addRow("%s, %s", name, words);
        };
        // clang-format off
        row("XML: nested, no end")        << xml  << 200 << QByteArray("<a>").repeated(size / 3);
        row("XML: nested")                << xml  << 200 << nested(size / 8);
        row("XML: many elements")         << xml  << 200 << "<e>" + QByteArray("<a/>").repeated(size / 4) + "</e>";
        row("XML: many attributes")       << xml  << 200 << "<e " + QByteArray("a='b' ").repeated(size / 6) + "/>";
        row("XML: entities in entities")  << xml  << 200 << entities;
        row("XML: a file of the till")    << xml  << 200 << outside;
        row("XML: noise")                 << xml  << 200 << noise(size);
        row("XML: one long text")         << xml  << 200 << "<e><ReturnCode>1</ReturnCode><Message>" + QByteArray(size, 'x') + "</Message></e>";
        row("JSON: nested, no end")       << json << 500 << QByteArray("[").repeated(size);
        row("JSON: nested")               << json << 500 << QByteArray("[").repeated(size / 2) + QByteArray("]").repeated(size / 2);
        row("JSON: nested objects")       << json << 500 << QByteArray("{\"a\":").repeated(size / 5);
        row("JSON: many elements")        << json << 500 << "{\"a\":[0" + QByteArray(",0").repeated(size / 2) + "]}";
        row("JSON: a long number")        << json << 500 << "{\"errorCode\":" + QByteArray(size, '9') + "}";
        row("JSON: noise")                << json << 500 << noise(size);
        row("XML: the element that is asked for") << xml << 200 << "<e>" + QByteArray("<Message/>").repeated(size / 11) + "<ReturnCode>1</ReturnCode></e>";
        row("XML: attributes of their own")  << xml  << 200 << "<e " + ownAttributes(size - 20) + "/>";
        row("JSON: small objects")          << json << 500 << "{\"a\":[{\"b\":0}" + QByteArray(",{\"b\":0}").repeated((size - 20) / 8 - 1) + "]}";
        // clang-format on
    }
}

/// Complete answers of an allowed length whose contents are made to break the parser.
void TestNetworkFaults::strangeBodies()
{
    QFETCH(QString, type);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    RoughPeer peer(says("HTTP/1.1 " + QByteArray::number(status) + " Status\r\nContent-Length: "
                        + QByteArray::number(body.size()) + "\r\n\r\n" + body));
    if (!bodiesTill) {
        bodiesTill = std::make_unique<faults::Till>();
        bodiesTill->start();
    }
    faults::Till &till = *bodiesTill;
    const int endsBefore = till.service().log().ends(type);
    const int id = till.put(type, request(QUrl(u"http://127.0.0.1:%1/"_s.arg(peer.port()))));
    till.ask("/start/" + type.toUtf8() + "/0");
    QVERIFY(till.waitForEnds(type, endsBefore + 1));
    QVERIFY(till.isIn(id));
    // The peer counts after its last write, which the service may have read by then.
    QTRY_VERIFY(peer.sentBytes() > body.size());
    till.remove(id);
    QVERIFY(till.ask("/status").contains("messagesCount"));
    QVERIFY(!till.service().log().text().contains(u"root:"));
    qInfo("at most %lld KiB so far, now %lld KiB", till.peakMemory(), till.memory());
    if (faults::isMemoryJudged()) {
        QVERIFY2(till.peakMemory() < documentMemoryLimit,
                 qPrintable(u"%1 KiB"_s.arg(till.peakMemory())));
        QVERIFY2(till.memory() < faults::memoryLimit, qPrintable(u"%1 KiB"_s.arg(till.memory())));
    }
}

/// Documents as large as the limits, as a large shop may have them, are delivered, and the memory
/// is released.
void TestNetworkFaults::largeDocuments()
{
    constexpr qsizetype documentSize = 16 * 1024 * 1024;
    const QString line =
        u"<ChequeLine Correction=\"1\" Sum=\"10\"><Name>bread</Name></ChequeLine>"_s;
    const QString lines = line.repeated((documentSize - 200) / line.size());
    const QByteArray items = QByteArray("<Item><Id>7</Id></Item>").repeated((readSize - 200) / 23);
    const QByteArray reply = "<r>" + items
                             + "<ReturnCode>0</ReturnCode><TransactionID>t</TransactionID>"
                               "<DiscountResponse ErrorCode='0'/></r>";
    const auto whole = [](const QByteArray &body) {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n"
               + body;
    };
    faults::Till till;
    till.start();
    const auto deliver = [&till](const QString &type, const QString &xml,
                                 const QByteArray &answer) {
        const RoughPeer peer(says(answer));
        const int endsBefore = till.service().log().ends(type);
        const int id = till.put(type, {{u"url"_s, u"http://127.0.0.1:%1/"_s.arg(peer.port())},
                                       {u"headers"_s, QJsonObject()},
                                       {u"body"_s, xml},
                                       {u"timeout"_s, ampleSeconds}});
        till.ask("/start/" + type.toUtf8() + "/0");
        return till.waitForEnds(type, endsBefore + 1) && !till.isIn(id);
    };
    QVERIFY(deliver(u"setomni"_s, u"<sale/>"_s, whole("<ok/>")));
    const qint64 before = till.memory();
    QVERIFY(deliver(u"manzanaloyaltyonline"_s,
                    u"<q><OperationType>Sale</OperationType>"_s + lines + u"</q>"_s, whole(reply)));
    qInfo("manzanaloyaltyonline: at most %lld KiB, now %lld KiB", till.peakMemory(), till.memory());
    QVERIFY(deliver(u"setomni"_s, u"<sale>"_s + lines + u"</sale>"_s, whole(reply)));
    qInfo("setomni: at most %lld KiB, now %lld KiB", till.peakMemory(), till.memory());
    QVERIFY(deliver(u"loymax"_s, u"<q>"_s + lines + u"</q>"_s, whole(reply)));
    qInfo("at most %lld KiB, now %lld KiB, before %lld KiB", till.peakMemory(), till.memory(),
          before);
    if (!faults::isMemoryJudged())
        return;
    QVERIFY(till.peakMemory() < tillDocumentMemoryLimit);
    // The log keeps a buffer of the size of its longest line, which contains the whole message.
    QVERIFY(rig::waitUntil([&] { return till.memory() < before + 32 * 1024; }));
}

/// The two types that speak plain TCP. `dssl` only sends its bytes, so a connection is enough;
/// `eps` needs an answer with its mark.
void TestNetworkFaults::tcpPeers()
{
    struct TcpFault
    {
        QByteArray name;
        Manner manner;
        bool isConnected = true;
        int bytes = 64;
    };
    const QByteArray x(chunkSize, 'x');
    constexpr int manyBytes = 1024 * 1024;
    // clang-format off
    const QList<TcpFault> tcpFaults{
        {"refuses",                         Refused{}, false},
        {"leaves the handshake unanswered", Deaf{}, false},
        {"sends nothing",                   [](Line &line) { line.listen(); }},
        {"closes at once",                  [](Line &) {}},
        {"resets after the first bytes",    [](Line &line) { if (line.awaitBytes()) line.reset(); }},
        {"does not read",                   [](Line &line) { line.idle(); }, true, manyBytes},
        {"a byte a second",                 [](Line &line) { line.drip("S01AB", secondMs); }},
        {"noise",                           [](Line &line) { if (line.send(noise(4096))) line.listen(); }},
        {"1 GB",                            [x](Line &line) { line.flood(x, gibibyte); }},
        {"1 GB and does not read",          [x](Line &line) { line.flood(x, gibibyte); }, true, manyBytes},
    };
    // clang-format on
    struct Attempt
    {
        std::unique_ptr<Scene> scene;
        std::unique_ptr<faults::Till> till;
        QElapsedTimer timer;
        int dssl = 0;
        int eps = 0;
        qint64 dsslMs = 0;
        qint64 epsMs = 0;
    };
    std::vector<Attempt> attempts(static_cast<std::size_t>(tcpFaults.size()));
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        Attempt &attempt = attempts[i];
        const TcpFault &fault = tcpFaults.at(static_cast<qsizetype>(i));
        attempt.scene = std::make_unique<Scene>(Fault{fault.name, fault.manner});
        attempt.till = std::make_unique<faults::Till>();
        const int port = attempt.scene->url.port();
        const QString bytes = u"S01AB123456"_s + QString(fault.bytes, u'x');
        attempt.dssl = attempt.till->put(u"dssl"_s, {{u"url"_s, u"127.0.0.1"_s},
                                                     {u"port"_s, port},
                                                     {u"body"_s, bytes},
                                                     {u"timeout"_s, timeoutSeconds}});
        attempt.eps = attempt.till->put(
            u"eps"_s, {{u"host"_s, u"127.0.0.1"_s}, {u"port"_s, port}, {u"message"_s, bytes}});
        attempt.till->start();
        attempt.timer.start();
    }
    QVERIFY(rig::waitUntil([&attempts] {
        bool isDone = true;
        for (Attempt &attempt : attempts) {
            if (attempt.dsslMs == 0 && attempt.till->service().log().ends(u"dssl"_s) > 0)
                attempt.dsslMs = attempt.timer.elapsed();
            if (attempt.epsMs == 0 && attempt.till->service().log().ends(u"eps"_s) > 0)
                attempt.epsMs = attempt.timer.elapsed();
            isDone &= attempt.dsslMs > 0 && attempt.epsMs > 0;
        }
        return isDone;
    }));
    qint64 mostMemory = 0;
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        Attempt &attempt = attempts[i];
        const TcpFault &fault = tcpFaults.at(static_cast<qsizetype>(i));
        const QByteArray seen = fault.name + ": dssl " + QByteArray::number(attempt.dsslMs)
                                + " ms, eps " + QByteArray::number(attempt.epsMs) + " ms, "
                                + QByteArray::number(attempt.till->peakMemory()) + " KiB";
        QVERIFY2(attempt.till->service().isRunning(), seen.constData());
        QVERIFY2(attempt.till->isIn(attempt.dssl) != fault.isConnected, seen.constData());
        QVERIFY2(attempt.till->isIn(attempt.eps), seen.constData());
        // Connecting, writing and closing each have this timeout.
        QVERIFY2(attempt.dsslMs < 3 * timeoutSeconds * secondMs + slackMs, seen.constData());
        constexpr int epsTimeoutMs = 5000;
        QVERIFY2(attempt.epsMs < 2 * epsTimeoutMs + slackMs, seen.constData());
        if (faults::isMemoryJudged())
            QVERIFY2(attempt.till->peakMemory() < faults::memoryLimit, seen.constData());
        mostMemory = std::max(mostMemory, attempt.till->peakMemory());
    }
    qInfo("TCP peers: %lld kinds, memory %lld KiB at most",
          static_cast<long long>(tcpFaults.size()), static_cast<long long>(mostMemory));
}

/// One worker delivers with two client certificates and without one in turn, another worker always
/// without one. The server reports whom it saw.
void TestNetworkFaults::certificatesStayApart()
{
    const QString ivan =
        papers.certificates.joined(papers.certificates.client(papers.authority, u"ivan"_s));
    const QString maria =
        papers.certificates.joined(papers.certificates.client(papers.authority, u"maria"_s));
    const NginxServer nginx(NginxServer::Setup{papers.good, papers.authority.certificate});
    faults::Till till(u"[network]\ncaFile = %1\n"_s.arg(papers.authority.certificate));
    QStringList expected;
    QList<int> uncertified;
    const int rounds = faults::count(10, 50);
    const QStringList order{ivan, maria, QString(), ivan, ivan, QString(), QString(), maria};
    for (int i = 0; i < rounds; ++i) {
        for (const QString &certificate : order) {
            QJsonObject message = request(nginx.url());
            message.insert(u"method"_s, u"POST"_s);
            if (!certificate.isEmpty())
                message.insert(u"certificatePath"_s, certificate);
            till.put(u"spasibo"_s, message);
            expected.append(certificate.isEmpty() ? u"400"_s
                            : certificate == ivan ? u"CN=ivan"_s
                                                  : u"CN=maria"_s);
        }
        uncertified.append(till.put(u"heineken"_s, request(nginx.url())));
    }
    till.start();
    QVERIFY(till.waitForEnds(u"heineken"_s, 1));
    QVERIFY(
        rig::waitUntil([&] { return till.exchangeTimes(u"spasibo"_s).size() >= expected.size(); }));

    static const QRegularExpression seen(u"CN=\\w+|400"_s);
    QStringList subjects;
    for (const QString &line : till.lines(u"spasibo"_s).filter(QRegularExpression(u"\\AОтвет: "_s)))
        subjects.append(seen.match(line).captured());
    QCOMPARE(subjects.mid(0, expected.size()), expected);
    for (const QString &line :
         till.lines(u"heineken"_s).filter(QRegularExpression(u"\\AОтвет: "_s)))
        QCOMPARE(seen.match(line).captured(), u"400"_s);
    const QList<int> left = till.ids();
    for (const int id : uncertified)
        QVERIFY(left.contains(id));
    qInfo(
        "client certificates: %lld deliveries for two clients and for nobody, %lld beside them for nobody",
        static_cast<long long>(expected.size()), static_cast<long long>(uncertified.size()));
}

QTEST_GUILESS_MAIN(TestNetworkFaults)
#include "tst_networkfaults.moc"
