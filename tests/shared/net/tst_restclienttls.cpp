#include "rig/certificates.h"
#include "rig/loopbackserver.h"
#include "rig/nginxserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/recordingobserver.h"
#include "tests/shared/net/restclientrequests.h"
#include "tests/support/realfunction.h"
#include "tests/support/testsettings.h"

#include <QFile>
#include <QNetworkReply>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using rig::Certificates;
using rig::LoopbackServer;
using rig::NginxServer;

namespace {

QList<QByteArray> trustedFolders;

/// The certificate files of a client.
struct Client
{
    QString certificate;
    QString key;
    QString password;

    bool operator==(const Client &) const = default;
};

/// A proxy on a free port of 127.0.0.1 that opens one tunnel to a fixed port of this machine.
class Tunnel
{
public:
    explicit Tunnel(int target)
        : relay([this, target] { serve(target); })
    {
    }
    ~Tunnel()
    {
        ::shutdown(listener.socket, SHUT_RDWR);
        relay.join();
    }
    Tunnel(const Tunnel &) = delete;

    int port() const { return listener.port; }

private:
    struct Listener
    {
        Listener()
        {
            sockaddr_in address = loopback(0);
            socklen_t size = sizeof(address);
            auto *const plain = reinterpret_cast<sockaddr *>(&address);
            if (::bind(socket, plain, size) != 0 || ::listen(socket, 1) != 0
                || ::getsockname(socket, plain, &size) != 0)
                qFatal("no socket to listen on");
            port = ntohs(address.sin_port);
        }
        ~Listener() { ::close(socket); }

        int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int port = 0;
    };

    static sockaddr_in loopback(int port)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(port));
        return address;
    }

    void serve(int target) const
    {
        const int client = ::accept(listener.socket, nullptr, nullptr);
        const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(target);
        char piece[16384];
        QByteArray head;
        while (!head.endsWith("\r\n\r\n")) {
            const ssize_t count = ::recv(client, piece, sizeof(piece), 0);
            if (count <= 0)
                break;
            head.append(piece, count);
        }
        const QByteArray answer = "HTTP/1.1 200 Connection established\r\n\r\n";
        bool isOpen =
            head.startsWith("CONNECT ")
            && ::connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0
            && ::send(client, answer.constData(), static_cast<std::size_t>(answer.size()),
                      MSG_NOSIGNAL)
                   > 0;
        while (isOpen) {
            // The listener ends with the test.
            pollfd ends[] = {
                {client, POLLIN, 0}, {server, POLLIN, 0}, {listener.socket, POLLIN, 0}};
            ::poll(ends, 3, -1);
            const bool isFromClient = ends[0].revents != 0;
            const ssize_t count = ends[2].revents != 0 ? 0
                                                       : ::recv(isFromClient ? client : server,
                                                                piece, sizeof(piece), 0);
            isOpen = count > 0
                     && ::send(isFromClient ? server : client, piece,
                               static_cast<std::size_t>(count), MSG_NOSIGNAL)
                            == count;
        }
        ::close(client);
        ::close(server);
    }

    Listener listener;
    std::thread relay;
};

} // namespace

Q_DECLARE_METATYPE(Client)
Q_DECLARE_METATYPE(Certificates::Identity)

// libcurl finds this one before that of the library.
extern "C" int X509_STORE_load_path(void *store, const char *folder)
{
    static const auto next = realFunction<int(void *, const char *)>("X509_STORE_load_path");
    trustedFolders.append(folder);
    return next(store, folder);
}

class TestRestClientTls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void trustsTheFurtherBundleBesideTheSystems();
    void serverCertificates_data();
    void serverCertificates();
    void unreadableBundle();
    void oldProtocols();
    void peersWithoutTls_data();
    void peersWithoutTls();
    void timeoutInTheHandshake();

    void clientCertificates_data();
    void clientCertificates();
    void unusableClientCertificates_data();
    void unusableClientCertificates();
    void clientCertificateIsUnusedWithoutTls();
    void anotherAuthoritysClient();
    void keepsTheConnectionOfOneClient();
    void neverSharesAConnectionBetweenClients();
    void seesAReplacedCertificateFile();
    void reportsTheEndOfTheCertificate();
    void reportsNoEndOfAnUnusableCertificate();
    void hostThatClosesKeptConnections();
    void answersThroughATunnel_data();
    void answersThroughATunnel();

private:
    RestClient &exchange(RestClient &client, const NginxServer &server);
    static void use(RestClient &restClient, const Client &client);

    Certificates certificates;
    Certificates::Identity authority;
    Certificates::Identity otherAuthority;
    Certificates::Identity server;
    Certificates::Identity ivan;
    Certificates::Identity maria;
    std::unique_ptr<NginxServer> open;
    std::unique_ptr<NginxServer> closed;
    TestSettings settings;
};

void TestRestClientTls::initTestCase()
{
    // The system's settings would refuse old protocols before RestClient does.
    qputenv("OPENSSL_CONF", certificates
                                .file("openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\n"
                                      "system_default = lax\n[lax]\nMinProtocol = TLSv1\n"
                                      "CipherString = DEFAULT:@SECLEVEL=0\n")
                                .toUtf8());
    authority = certificates.authority(u"Test CA"_s);
    otherAuthority = certificates.authority(u"Other CA"_s);
    server = certificates.server(authority, {u"IP:127.0.0.1"_s, u"DNS:localhost"_s});
    ivan = certificates.client(authority, u"ivan"_s);
    maria = certificates.client(authority, u"maria"_s);
    open = std::make_unique<NginxServer>(NginxServer::Setup{server, {}});
    closed = std::make_unique<NginxServer>(NginxServer::Setup{server, authority.certificate});
}

void TestRestClientTls::init()
{
    settings.set(u"[network]\ncaFile = %1\n"_s.arg(authority.certificate));
}

RestClient &TestRestClientTls::exchange(RestClient &client, const NginxServer &server_)
{
    client.setTimeout(10);
    client.post(server_.url(), QByteArray("x"), noHeaders);
    return client;
}

void TestRestClientTls::use(RestClient &restClient, const Client &client)
{
    restClient.setCertificatePath(client.certificate);
    restClient.setCertificatePassword(client.password);
    restClient.setPrivateKeyPath(client.key);
}

void TestRestClientTls::trustsTheFurtherBundleBesideTheSystems()
{
    trustedFolders.clear();
    RestClient client;
    QCOMPARE(exchange(client, *open).errorText().ru(), QString());
    QCOMPARE(client.statusCode(), 200);
    QVERIFY(client.responseBody().startsWith('|'));
    QCOMPARE(trustedFolders, QList<QByteArray>{"/etc/ssl/certs"});
    QVERIFY(QDir(u"/etc/ssl/certs"_s).exists());
}

void TestRestClientTls::serverCertificates_data()
{
    QTest::addColumn<Certificates::Identity>("identity");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("caFile");
    QTest::addColumn<QString>("reason");
    const auto expired = certificates.expiredServer(authority, {u"IP:127.0.0.1"_s});
    const auto named = certificates.server(authority, {u"DNS:localhost"_s});
    const auto other = certificates.server(otherAuthority, {u"IP:127.0.0.1"_s});
    const QString ip = u"127.0.0.1"_s;
    // clang-format off
    QTest::newRow("by address")          << server    << ip             << authority.certificate      << QString();
    QTest::newRow("by name")             << server    << u"localhost"_s << authority.certificate      << QString();
    QTest::newRow("expired")             << expired   << ip             << authority.certificate      << u"expired"_s;
    QTest::newRow("of another name")     << named     << ip             << authority.certificate      << u"127.0.0.1"_s;
    QTest::newRow("of another CA")       << other     << ip             << authority.certificate      << u"certificate"_s;
    QTest::newRow("self-signed")         << authority << ip             << otherAuthority.certificate << u"certificate"_s;
    QTest::newRow("no bundle")           << server    << ip             << QString()                  << u"certificate"_s;
    // clang-format on
}

void TestRestClientTls::serverCertificates()
{
    QFETCH(Certificates::Identity, identity);
    QFETCH(QString, host);
    QFETCH(QString, caFile);
    QFETCH(QString, reason);
    settings.set(caFile.isEmpty() ? QString() : u"[network]\ncaFile = %1\n"_s.arg(caFile));
    const NginxServer nginx(NginxServer::Setup{identity, {}});
    RestClient client;
    client.get(nginx.url(host), {}, noHeaders);
    if (reason.isEmpty()) {
        QCOMPARE(client.errorText().ru(), QString());
        return;
    }
    QCOMPARE(client.errorCode(), int{QNetworkReply::SslHandshakeFailedError});
    QVERIFY(client.isNetworkError());
    QCOMPARE(client.statusCode(), 0);
    const QString text = client.errorText().ru();
    QVERIFY2(text.startsWith(u"Сертификат сервера %1:%2 не прошёл проверку"_s.arg(
                 host, QString::number(nginx.port()))),
             qPrintable(text));
    QVERIFY2(text.contains(reason), qPrintable(text));
}

void TestRestClientTls::unreadableBundle()
{
    for (const QString &path : {u"/nowhere/ca.pem"_s, certificates.file("no certificate")}) {
        settings.set(u"[network]\ncaFile = %1\n"_s.arg(path));
        RestClient client;
        QCOMPARE(exchange(client, *open).errorCode(), int{QNetworkReply::SslHandshakeFailedError});
        QVERIFY(client.errorText().ru().startsWith(u"Не удалось прочитать доверенные сертификаты"));
        QVERIFY2(client.errorText().ru().contains(path), qPrintable(client.errorText().ru()));
    }
}

void TestRestClientTls::oldProtocols()
{
    for (const QString &protocol : {u"TLSv1.2"_s, u"TLSv1.3"_s}) {
        const NginxServer nginx(NginxServer::Setup{server, {}, protocol});
        RestClient client;
        QCOMPARE(exchange(client, nginx).errorText().ru(), QString());
    }
    const NginxServer nginx(NginxServer::Setup{server, {}, u"TLSv1 TLSv1.1"_s});
    RestClient client;
    QCOMPARE(exchange(client, nginx).errorCode(), int{QNetworkReply::SslHandshakeFailedError});
    QVERIFY(client.errorText().ru().startsWith(u"Не удалось установить защищённое соединение"));
}

void TestRestClientTls::peersWithoutTls_data()
{
    QTest::addColumn<bool>("isClosing");
    QTest::addColumn<int>("errorCode");
    QTest::newRow("speaks HTTP") << false << int{QNetworkReply::SslHandshakeFailedError};
    QTest::newRow("closes") << true << int{QNetworkReply::RemoteHostClosedError};
}

void TestRestClientTls::peersWithoutTls()
{
    QFETCH(bool, isClosing);
    QTcpServer peer;
    QVERIFY(peer.listen(QHostAddress::LocalHost, 0));
    connect(&peer, &QTcpServer::newConnection, &peer, [&peer, isClosing] {
        QTcpSocket *socket = peer.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [socket, isClosing] {
            if (!isClosing)
                socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
            socket->readAll();
            socket->disconnectFromHost();
        });
    });
    http::Response response;
    const std::unique_ptr<QThread> thread(QThread::create([&peer, &response] {
        RestClient client;
        client.get(QUrl(u"https://127.0.0.1:%1/"_s.arg(peer.serverPort())), {}, noHeaders);
        response = client.response();
    }));
    thread->start();
    QTRY_VERIFY(thread->isFinished());
    thread->wait();
    QTEST(response.errorCode, "errorCode");
    QVERIFY(response.isNetworkError());
}

void TestRestClientTls::timeoutInTheHandshake()
{
    LoopbackServer silent;
    RestClient client;
    client.setTimeoutMs(200);
    QUrl url = silent.url(u"/"_s);
    url.setScheme(u"https"_s);
    client.get(url, {}, noHeaders);
    QCOMPARE(client.errorCode(), int{QNetworkReply::TimeoutError});
    QVERIFY(!silent.received().isEmpty());
}

void TestRestClientTls::clientCertificates_data()
{
    QTest::addColumn<Client>("client");
    const QString secret = u"пароль с пробелом"_s;
    const QString encrypted = certificates.encryptedKey(ivan, secret);
    const auto joinedEncrypted = certificates.joined({ivan.certificate, encrypted});
    // clang-format off
    QTest::newRow("PEM with its key")           << Client{certificates.joined(ivan), {}, {}};
    QTest::newRow("PEM with an encrypted key")  << Client{joinedEncrypted, {}, secret};
    QTest::newRow("separate key")               << Client{ivan.certificate, ivan.key, {}};
    QTest::newRow("separate encrypted key")     << Client{ivan.certificate, encrypted, secret};
    QTest::newRow("PKCS#12")                    << Client{certificates.pkcs12(ivan, secret), {}, secret};
    QTest::newRow("PKCS#12, pfx in capitals")   << Client{certificates.pkcs12(ivan, secret, u"PFX"_s), {}, secret};
    QTest::newRow("PKCS#12 without a password") << Client{certificates.pkcs12(ivan, {}), {}, {}};
    QTest::newRow("password nobody asked for")  << Client{certificates.joined(ivan), {}, secret};
    // clang-format on
}

void TestRestClientTls::clientCertificates()
{
    QFETCH(Client, client);
    RestClient restClient;
    use(restClient, client);
    exchange(restClient, *closed);
    QCOMPARE(restClient.errorText().ru(), QString());
    QCOMPARE(restClient.responseBody().split('|').value(0), "CN=ivan");
}

void TestRestClientTls::unusableClientCertificates_data()
{
    QTest::addColumn<Client>("client");
    QTest::addColumn<QString>("text");
    const QString secret = u"hidden"_s;
    const QString wrong = u"concealed"_s;
    const QString encrypted = certificates.encryptedKey(ivan, secret);
    const auto joinedEncrypted = certificates.joined({ivan.certificate, encrypted});
    const QString pkcs12 = certificates.pkcs12(ivan, secret);
    const QString noCertificate = certificates.file("this is no certificate");
    const QString missing = u"Не найден файл сертификата"_s;
    const QString unfit = u"Сертификат клиента"_s;
    // clang-format off
    QTest::newRow("no such file")            << Client{u"/nowhere/client.pem"_s, {}, {}}           << missing;
    QTest::newRow("a folder")                << Client{u"/tmp"_s, {}, {}}                          << missing;
    QTest::newRow("no such key file")        << Client{ivan.certificate, u"/nowhere/key"_s, {}}    << missing;
    QTest::newRow("no key")                  << Client{ivan.certificate, {}, {}}                   << unfit;
    QTest::newRow("key of another")          << Client{ivan.certificate, maria.key, {}}            << unfit;
    QTest::newRow("PEM: wrong password")     << Client{joinedEncrypted, {}, wrong}                 << unfit;
    QTest::newRow("PEM: no password")        << Client{joinedEncrypted, {}, {}}                    << unfit;
    QTest::newRow("key: wrong password")     << Client{ivan.certificate, encrypted, wrong}         << unfit;
    QTest::newRow("PKCS#12: wrong password") << Client{pkcs12, {}, wrong}                          << unfit;
    QTest::newRow("PKCS#12: no password")    << Client{pkcs12, {}, {}}                             << unfit;
    QTest::newRow("no certificate inside")   << Client{noCertificate, {}, {}}                      << unfit;
    QTest::newRow("an empty file")           << Client{certificates.file({}), {}, {}}              << unfit;
    // clang-format on
}

void TestRestClientTls::unusableClientCertificates()
{
    QFETCH(Client, client);
    QFETCH(QString, text);
    RestClient restClient;
    use(restClient, client);
    exchange(restClient, *closed);
    QCOMPARE(restClient.errorCode(), int{QNetworkReply::SslHandshakeFailedError});
    QVERIFY(restClient.isNetworkError());
    const QString shown = restClient.errorText().ru();
    QVERIFY2(shown.startsWith(text), qPrintable(shown));
    QVERIFY2(shown.contains(client.certificate) || shown.contains(client.key), qPrintable(shown));
    QVERIFY2(!shown.contains(u"hidden") && !shown.contains(u"concealed"), qPrintable(shown));

    // The next delivery with a good one works.
    RestClient good;
    use(good, {certificates.joined(ivan), {}, {}});
    QCOMPARE(exchange(good, *closed).errorText().ru(), QString());
}

void TestRestClientTls::clientCertificateIsUnusedWithoutTls()
{
    LoopbackServer plain;
    RestClient client;
    client.setCertificatePath(u"/nowhere/client.pem"_s);
    client.get(plain.url(u"/"_s), {}, noHeaders);
    QCOMPARE(client.errorCode(), 0);
}

void TestRestClientTls::anotherAuthoritysClient()
{
    const Certificates::Identity stranger = certificates.client(otherAuthority, u"stranger"_s);
    for (const Client &client : {Client{certificates.joined(stranger), {}, {}}, Client{}}) {
        RestClient restClient;
        use(restClient, client);
        exchange(restClient, *closed);
        // nginx lets the handshake pass and answers each request with 400.
        QCOMPARE(restClient.statusCode(), 400);
        QCOMPARE(restClient.errorCode(), int{QNetworkReply::ProtocolInvalidOperationError});
        QVERIFY(!restClient.isNetworkError());
    }
}

void TestRestClientTls::keepsTheConnectionOfOneClient()
{
    const QString ivanFile = certificates.joined(ivan);
    QList<QByteArray> answers;
    for (int count = 0; count < 3; ++count) {
        RestClient client;
        use(client, {ivanFile, {}, {}});
        answers.append(exchange(client, *closed).responseBody());
    }
    QVERIFY(answers.at(0).startsWith("CN=ivan|"));
    QCOMPARE(answers.at(1), answers.at(0));
    QCOMPARE(answers.at(2), answers.at(0));

    RestClient anonymous;
    const QByteArray first = exchange(anonymous, *open).responseBody();
    QCOMPARE(exchange(anonymous, *open).responseBody(), first);
}

void TestRestClientTls::neverSharesAConnectionBetweenClients()
{
    const QString ivanPem = certificates.joined(ivan);
    const QString mariaPem = certificates.joined(maria);
    const QList<std::pair<Client, QByteArray>> rows = {
        {{ivanPem, {}, {}}, "CN=ivan"},
        {{mariaPem, {}, {}}, "CN=maria"},
        {{ivanPem, {}, {}}, "CN=ivan"},
        {{}, "400"},
        {{ivan.certificate, ivan.key, {}}, "CN=ivan"},
        {{maria.certificate, maria.key, {}}, "CN=maria"},
        // Has no right to it: the key is not his, although maria's connection is open.
        {{maria.certificate, ivan.key, {}}, "0"},
        {{certificates.pkcs12(ivan, u"1"_s), {}, u"1"_s}, "CN=ivan"},
        {{}, "400"},
        {{mariaPem, {}, {}}, "CN=maria"},
    };
    for (const auto &[client, expected] : rows) {
        RestClient restClient;
        use(restClient, client);
        exchange(restClient, *closed);
        const QByteArray seen = restClient.statusCode() == 200
                                    ? restClient.responseBody().split('|').value(0)
                                    : QByteArray::number(restClient.statusCode());
        QCOMPARE(seen, expected);
    }
    // A wrong password is not accepted because of an open connection made with the right one.
    const QString pkcs12 = certificates.pkcs12(ivan, u"right"_s);
    RestClient right;
    use(right, {pkcs12, {}, u"right"_s});
    QCOMPARE(exchange(right, *closed).errorCode(), 0);
    RestClient wrong;
    use(wrong, {pkcs12, {}, u"wrong"_s});
    QCOMPARE(exchange(wrong, *closed).errorCode(), int{QNetworkReply::SslHandshakeFailedError});
}

void TestRestClientTls::seesAReplacedCertificateFile()
{
    const QString path = certificates.joined(ivan);
    RestClient client;
    use(client, {path, {}, {}});
    QVERIFY(exchange(client, *closed).responseBody().startsWith("CN=ivan|"));

    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::copy(certificates.joined(maria), path));
    QVERIFY(exchange(client, *closed).responseBody().startsWith("CN=maria|"));
}

void TestRestClientTls::reportsTheEndOfTheCertificate()
{
    // The server does not request it, so it may be expired.
    const auto expired = certificates.expiredServer(authority, {u"DNS:till"_s});
    const QDateTime end(QDate(2021, 1, 1), QTime(0, 0), Qt::UTC);
    const QString path = certificates.joined(expired);
    const QString pkcs12 = certificates.pkcs12(expired, u"secret"_s);
    const QList<Client> clients = {{path, {}, {}},
                                   {path, {}, {}},
                                   {expired.certificate, expired.key, {}},
                                   {pkcs12, {}, u"secret"_s}};
    for (const Client &client : clients) {
        const RecordingObserver observer;
        RestClient restClient;
        use(restClient, client);
        QCOMPARE(exchange(restClient, *open).errorText().ru(), QString());
        QCOMPARE(observer.only().certificatePath, client.certificate);
        QCOMPARE(observer.only().certificateEnd, end);
    }

    const RecordingObserver observer;
    RestClient anonymous;
    exchange(anonymous, *open);
    QCOMPARE(observer.only().certificatePath, QString());
    QVERIFY(!observer.only().certificateEnd.isValid());

    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::copy(certificates.joined(ivan), path));
    const RecordingObserver later;
    RestClient replaced;
    use(replaced, {path, {}, {}});
    exchange(replaced, *open);
    QVERIFY(later.only().certificateEnd > QDateTime::currentDateTimeUtc());
}

void TestRestClientTls::reportsNoEndOfAnUnusableCertificate()
{
    const RecordingObserver observer;
    RestClient client;
    use(client, {certificates.file("no certificate"), {}, {}});
    exchange(client, *open);
    QCOMPARE(observer.only().kind, http::FailureKind::Certificate);
    QVERIFY(!observer.only().certificateEnd.isValid());

    const RecordingObserver second;
    use(client, {u"/nowhere/till.pem"_s, {}, {}});
    exchange(client, *open);
    QCOMPARE(second.only().kind, http::FailureKind::Certificate);
    QCOMPARE(second.only().certificatePath, QString());
}

/// A connection that the server has closed with TLS's close_notify.
void TestRestClientTls::hostThatClosesKeptConnections()
{
    const NginxServer brief(
        NginxServer::Setup{.identity = server, .clientAuthority = {}, .keepAlive = u"300ms"_s});
    const auto isClosedByServer = [&brief] {
        QFile file(u"/proc/self/net/tcp"_s);
        if (!file.open(QIODevice::ReadOnly))
            qFatal("%s", qPrintable(file.errorString()));
        const QString closeWait = u":%1 08"_s.arg(brief.port(), 4, 16, QChar(u'0')).toUpper();
        return QString::fromLatin1(file.readAll()).contains(closeWait);
    };
    RestClient client;
    QCOMPARE(exchange(client, brief).errorCode(), 0);
    QTRY_VERIFY(isClosedByServer());
    QSet<QByteArray> connections;
    for (int count = 0; count < 4; ++count) {
        QCOMPARE(exchange(client, brief).errorText().ru(), QString());
        connections.insert(client.responseBody());
    }
    QCOMPARE(connections.size(), 4);
}

void TestRestClientTls::answersThroughATunnel_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("errorCode");
    QTest::newRow("success") << 200 << int{QNetworkReply::NoError};
    // The tunnel is open: the server is the one that asks for a password.
    QTest::newRow("the status of proxies")
        << 407 << int{QNetworkReply::ProxyAuthenticationRequiredError};
}

void TestRestClientTls::answersThroughATunnel()
{
    QFETCH(int, status);
    const NginxServer target(
        NginxServer::Setup{.identity = server, .clientAuthority = {}, .status = status});
    const Tunnel tunnel(target.port());
    settings.set(u"[network]\ncaFile = %1\nproxy = 127.0.0.1:%2\n"_s.arg(
        authority.certificate, QString::number(tunnel.port())));
    RestClient client;
    exchange(client, target);
    QCOMPARE(client.statusCode(), status);
    QTEST(client.errorCode(), "errorCode");
    QVERIFY(client.hasResponse());
    QVERIFY2(client.responseBody().startsWith('|'), client.responseBody().constData());
}

QTEST_GUILESS_MAIN(TestRestClientTls)
#include "tst_restclienttls.moc"
