#include "shared/net/curlfailure.h"

#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;
using curl::Circumstances;
using http::FailureKind;

Q_DECLARE_METATYPE(Circumstances)
Q_DECLARE_METATYPE(FailureKind)

namespace {

/// An exchange with service.test that failed with this code.
Circumstances direct(CURLcode code, const QByteArray &detail = {}, long systemError = 0)
{
    Circumstances failed;
    failed.code = code;
    failed.detail = detail;
    failed.systemError = systemError;
    failed.server = u"service.test"_s;
    failed.certificatePath = u"/certs/till.pem"_s;
    failed.timeout = std::chrono::milliseconds(2500);
    failed.transfer.attempts = 1;
    failed.isRequestSent = true;
    failed.isConnected = true;
    return failed;
}

/// The same through a proxy, which has answered a request for a tunnel with `tunnelStatus`.
Circumstances proxied(CURLcode code, long tunnelStatus = 0, const QByteArray &detail = {})
{
    Circumstances failed = direct(code, detail);
    failed.proxy = u"proxy:3128"_s;
    failed.tunnelStatus = tunnelStatus;
    return failed;
}

Circumstances secure(Circumstances failed)
{
    failed.isSecure = true;
    return failed;
}

Circumstances unconnected(Circumstances failed)
{
    failed.isConnected = false;
    return failed;
}

Circumstances unsent(Circumstances failed)
{
    failed.isRequestSent = false;
    return failed;
}

Circumstances notBegun(Circumstances failed)
{
    failed.transfer.attempts = 0;
    return failed;
}

Circumstances marked(Circumstances failed, bool curl::Transfer::*mark)
{
    failed.transfer.*mark = true;
    return failed;
}

} // namespace

class TestCurlFailure : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void failures_data();
    void failures();
    void libcurlsTextIsTheDefault();
    void bracesInTheDetailAreText();
    void statusIsKept();
    void missingFile();
};

void TestCurlFailure::failures_data()
{
    QTest::addColumn<Circumstances>("failed");
    QTest::addColumn<int>("error");
    QTest::addColumn<FailureKind>("kind");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const Circumstances &failed, int error, FailureKind kind,
                        const QString &text) {
        QTest::newRow(name) << failed << error << kind << text;
    };
    using curl::Transfer;
    constexpr auto network = FailureKind::Network;
    constexpr auto certificate = FailureKind::Certificate;
    constexpr auto unknown = http::unknownNetworkError;
    const auto newTooLarge = static_cast<CURLcode>(100);
    const QString host = u"Сервер service.test "_s;
    const QString far = u"Сервер service.test (через прокси-сервер proxy:3128) "_s;
    const QString closed = u"закрыл соединение до конца ответа"_s;
    const QString late = u"не ответил за 2.5 сек."_s;
    const QString proxy = u"Прокси-сервер proxy:3128 "_s;
    const QString noTunnel = proxy + u"не соединил с сервером service.test (%1)"_s;
    const QString refusedName = proxy + u"не принял имя и пароль (код состояния 407)"_s;
    const QString tls =
        u"Не удалось установить защищённое соединение с сервером service.test (%1)"_s;
    const QString tooLong = u"Слишком длинный заголовок в ответе сервера service.test"_s;
    const QString unclear = u"Обмен с сервером service.test не удался (%1)"_s;
    // clang-format off
    row("body too large",          marked(direct(CURLE_WRITE_ERROR), &Transfer::isBodyTooLarge),        unknown, FailureKind::Service, u"Ответ сервера service.test больше 16 МиБ"_s);
    row("headers too large",       marked(direct(CURLE_WRITE_ERROR), &Transfer::isHeaderTooLarge),      unknown, FailureKind::Service, u"Заголовки ответа сервера service.test больше 256 КиБ"_s);
    row("line too long",           direct(CURLE_OUT_OF_MEMORY),                                         unknown, FailureKind::Service, tooLong);
    row("line too long, newer",    direct(newTooLarge),                                                 unknown, FailureKind::Service, tooLong);
    row("trailer too long",        direct(CURLE_RECV_ERROR, "Out of memory in chunked encoding"),       unknown, FailureKind::Service, tooLong);
    row("too many lines",          direct(CURLE_RECV_ERROR, "Too many response headers, 5001"),         unknown, FailureKind::Service, tooLong);
    row("request too long",        unsent(direct(CURLE_OUT_OF_MEMORY)),                                 unknown, FailureKind::Request, u"Слишком длинный адрес или заголовок в запросе к серверу service.test"_s);

    row("proxy: unusable",         proxied(CURLE_COULDNT_CONNECT, 0, "Unsupported proxy scheme for x"), http::proxyNotFoundError, network, proxy.chopped(1) + u": недопустимый адрес в network:proxy"_s);
    row("proxy: no such name",     proxied(CURLE_COULDNT_RESOLVE_PROXY),                                http::proxyNotFoundError, network, u"Не найден адрес прокси-сервера proxy:3128"_s);
    row("proxy: SOCKS failed",     proxied(CURLE_PROXY, 0, "no route"),                                 http::proxyClosedError,   network, noTunnel.arg(u"no route"_s));
    row("proxy: not connected",    unconnected(proxied(CURLE_OPERATION_TIMEDOUT)),                      http::proxyTimeoutError,  network, proxy + late);
    row("proxy: no tunnel in time", secure(proxied(CURLE_OPERATION_TIMEDOUT)),                          http::proxyTimeoutError,  network, proxy + late);
    row("proxy: server silent",    proxied(CURLE_OPERATION_TIMEDOUT),                                   http::timeoutError,       network, far + late);
    row("tunnel: server silent",   secure(proxied(CURLE_OPERATION_TIMEDOUT, 200)),                      http::timeoutError,       network, far + late);
    row("tunnel: name refused",    secure(proxied(CURLE_RECV_ERROR, 407)),                              http::proxyAuthenticationError, FailureKind::Credentials, refusedName);
    row("plain: name refused",     marked(proxied(CURLE_PARTIAL_FILE), &Transfer::isProxyRefusal),      http::proxyAuthenticationError, FailureKind::Credentials, refusedName);
    row("tunnel: refused",         secure(proxied(CURLE_RECV_ERROR, 502)),                              http::proxyClosedError,   network, noTunnel.arg(u"код состояния 502"_s));
    row("tunnel: redirected",      secure(proxied(CURLE_RECV_ERROR, 300)),                              http::proxyClosedError,   network, noTunnel.arg(u"код состояния 300"_s));
    row("proxy: refused",          proxied(CURLE_COULDNT_CONNECT),                                      http::proxyRefusedError,  network, proxy + u"отклонил соединение"_s);
    row("tunnel: reading failed",  secure(proxied(CURLE_RECV_ERROR, 0, "a")),                           http::proxyClosedError,   network, noTunnel.arg(u"a"_s));
    row("tunnel: writing failed",  secure(proxied(CURLE_SEND_ERROR, 0, "a")),                           http::proxyClosedError,   network, noTunnel.arg(u"a"_s));
    row("tunnel: nothing came",    secure(proxied(CURLE_GOT_NOTHING, 0, "a")),                          http::proxyClosedError,   network, noTunnel.arg(u"a"_s));
    row("tunnel made, then closed", secure(proxied(CURLE_GOT_NOTHING, 200)),                            http::closedEarlyError,   network, far + closed);
    row("plain: nothing came",     proxied(CURLE_GOT_NOTHING),                                          http::closedEarlyError,   network, far + closed);
    row("proxy: not repeated",     marked(secure(proxied(CURLE_ABORTED_BY_CALLBACK, 407)), &Transfer::isRepeatRefused), http::closedEarlyError, network, far + closed);

    row("no such name",            direct(CURLE_COULDNT_RESOLVE_HOST),                                  http::hostNotFoundError,      network, u"Не найден адрес сервера service.test"_s);
    row("refused",                 direct(CURLE_COULDNT_CONNECT, {}, ECONNREFUSED),                     http::connectionRefusedError, network, host + u"отклонил соединение"_s);
    row("unanswered",              direct(CURLE_COULDNT_CONNECT, {}, ETIMEDOUT),                        http::timeoutError,           network, host + late);
    row("reset at once",           direct(CURLE_COULDNT_CONNECT, {}, ECONNRESET),                       http::closedEarlyError,       network, host + closed);
    row("no route",                direct(CURLE_COULDNT_CONNECT, "no route", EHOSTUNREACH),             unknown,                      network, unclear.arg(u"no route"_s));
    row("timeout",                 direct(CURLE_OPERATION_TIMEDOUT),                                    http::timeoutError,           network, host + late);
    row("timeout, unconnected",    unconnected(direct(CURLE_OPERATION_TIMEDOUT)),                       http::timeoutError,           network, host + late);
    row("not repeated",            direct(CURLE_ABORTED_BY_CALLBACK),                                   http::closedEarlyError,       network, host + closed);
    row("nothing came",            direct(CURLE_GOT_NOTHING),                                           http::closedEarlyError,       network, host + closed);
    row("cut off",                 direct(CURLE_PARTIAL_FILE),                                          http::closedEarlyError,       network, host + closed);
    for (const char *words : {"Recv failure: a", "Send failure: a", "SSL_ERROR_SYSCALL", "unexpected eof", "Connection reset", "connection closed"}) {
        for (const CURLcode code : {CURLE_SSL_CONNECT_ERROR, CURLE_RECV_ERROR, CURLE_SEND_ERROR})
            QTest::addRow("closed: %s, %d", words, code) << direct(code, words) << http::closedEarlyError << network << host + closed;
    }
    row("broken",                  direct(CURLE_RECV_ERROR, "a"),                                       unknown,        network,     unclear.arg(u"a"_s));

    for (const CURLcode code : {CURLE_SSL_CONNECT_ERROR, CURLE_RECV_ERROR, CURLE_SEND_ERROR, CURLE_SSL_CIPHER, CURLE_SSL_ENGINE_INITFAILED, CURLE_SSL_ISSUER_ERROR, CURLE_USE_SSL_FAILED})
        QTest::addRow("TLS: %d", code) << direct(code, "SSL: wrong version") << http::tlsError << certificate << tls.arg(u"SSL: wrong version"_s);
    row("server's certificate",    direct(CURLE_PEER_FAILED_VERIFICATION, "expired"),                   http::tlsError, certificate, u"Сертификат сервера service.test не прошёл проверку (expired)"_s);
    row("client's certificate",    direct(CURLE_SSL_CERTPROBLEM, "no key"),                             http::tlsError, certificate, u"Сертификат клиента '/certs/till.pem' не подходит, проверьте файл, ключ и пароль (no key)"_s);
    row("trusted certificates",    direct(CURLE_SSL_CACERT_BADFILE, "no file"),                         http::tlsError, certificate, u"Не удалось прочитать доверенные сертификаты (no file)"_s);

    row("no memory, not begun",    notBegun(direct(CURLE_OUT_OF_MEMORY, "no memory")),                 unknown,        network,     unclear.arg(u"no memory"_s));
    row("anything else",           direct(CURLE_WEIRD_SERVER_REPLY, "no status"),                       unknown,        network,     unclear.arg(u"no status"_s));
    // clang-format on
}

void TestCurlFailure::failures()
{
    QFETCH(Circumstances, failed);
    const http::Response response = curl::failureFor(failed);
    QTEST(response.errorCode, "error");
    QTEST(response.kind(), "kind");
    QTEST(response.errorText.ru(), "text");
    QVERIFY(response.isNetworkError());
}

void TestCurlFailure::libcurlsTextIsTheDefault()
{
    const QString text = curl::failureFor(direct(CURLE_WEIRD_SERVER_REPLY)).errorText.ru();
    QVERIFY2(text.contains(QString::fromUtf8(curl_easy_strerror(CURLE_WEIRD_SERVER_REPLY))),
             qPrintable(text));
}

void TestCurlFailure::bracesInTheDetailAreText()
{
    QCOMPARE(curl::failureFor(direct(CURLE_SSL_CERTPROBLEM, "{file} {")).errorText.ru(),
             u"Сертификат клиента '/certs/till.pem' не подходит, проверьте файл, ключ и пароль "
             "({file} {)"_s);
}

void TestCurlFailure::statusIsKept()
{
    Circumstances failed = direct(CURLE_PARTIAL_FILE);
    failed.status = 201;
    QCOMPARE(curl::failureFor(failed).status, 201);
}

void TestCurlFailure::missingFile()
{
    const http::Response response = curl::missingCertificateFile(u"/nowhere.pem"_s);
    QCOMPARE(response.errorCode, http::tlsError);
    QCOMPARE(response.kind(), FailureKind::Certificate);
    QCOMPARE(response.errorText.ru(), u"Не найден файл сертификата '/nowhere.pem'"_s);
    QCOMPARE(response.status, 0);
}

QTEST_GUILESS_MAIN(TestCurlFailure)
#include "tst_curlfailure.moc"
