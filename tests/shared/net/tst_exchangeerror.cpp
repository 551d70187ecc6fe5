#include "shared/net/exchangeerror.h"
#include "shared/net/exchangeobserver.h"

#include <QNetworkReply>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using http::FailureKind;

namespace {

class RecordingObserver : public http::ExchangeObserver
{
public:
    void exchangeEnded(const http::ExchangeReport &report) override
    {
        statuses.append(report.status);
    }

    QList<int> statuses;
};

} // namespace

class TestExchangeError : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statuses_data();
    void statuses();
    void kinds_data();
    void kinds();
    void numbersAreQts();
    void observerOfTheThread();
};

void TestExchangeError::statuses_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("kind");
    const auto row = [](const char *name, int status, int error, FailureKind kind) {
        QTest::newRow(name) << status << error << QString(http::nameOf(kind));
    };
    constexpr auto none = FailureKind::None;
    constexpr auto network = FailureKind::Network;
    constexpr auto credentials = FailureKind::Credentials;
    constexpr auto request = FailureKind::Request;
    constexpr auto service = FailureKind::Service;
    // clang-format off
    row("0: none of ours",        0,   http::otherContentError,        service);
    row("100: none of ours",      100, http::otherContentError,        service);
    row("199: none of ours",      199, http::otherContentError,        service);
    row("200: success",           200, http::noError,                  none);
    row("299: success",           299, http::noError,                  none);
    row("300: not followed",      300, http::otherContentError,        service);
    row("307: not followed",      307, http::otherContentError,        service);
    row("399: not followed",      399, http::otherContentError,        service);
    row("400: bad request",       400, http::badRequestError,          request);
    row("401: unauthorized",      401, http::authenticationError,      credentials);
    row("402: not paid",          402, http::otherContentError,        credentials);
    row("403: forbidden",         403, http::accessDeniedError,        credentials);
    row("404: not found",         404, http::notFoundError,            request);
    row("405: verb",              405, http::methodNotAllowedError,    request);
    row("406: not acceptable",    406, http::otherContentError,        request);
    row("407: proxy's name",      407, http::proxyAuthenticationError, credentials);
    row("408: request timeout",   408, http::otherContentError,        service);
    row("409: conflict",          409, http::conflictError,            request);
    row("410: gone",              410, http::goneError,                request);
    row("411: no length",         411, http::otherContentError,        request);
    row("412: precondition",      412, http::otherContentError,        request);
    row("413: too large",         413, http::otherContentError,        request);
    row("414: address too long",  414, http::otherContentError,        request);
    row("415: content type",      415, http::otherContentError,        request);
    row("416: range",             416, http::otherContentError,        request);
    row("417: expectation",       417, http::otherContentError,        request);
    row("418",                    418, http::badRequestError,          request);
    row("419: unknown",           419, http::otherContentError,        request);
    row("420: unknown",           420, http::otherContentError,        request);
    row("421: misdirected",       421, http::otherContentError,        service);
    row("422: not processable",   422, http::otherContentError,        request);
    row("423: locked",            423, http::otherContentError,        service);
    row("424: another failed",    424, http::otherContentError,        service);
    row("425: too early",         425, http::otherContentError,        service);
    row("426: upgrade",           426, http::otherContentError,        request);
    row("428: no precondition",   428, http::otherContentError,        request);
    row("429: too many",          429, http::otherContentError,        service);
    row("430: unknown",           430, http::otherContentError,        request);
    row("431: headers too large", 431, http::otherContentError,        request);
    row("450: unknown",           450, http::otherContentError,        request);
    row("451: legal reasons",     451, http::otherContentError,        service);
    row("452: unknown",           452, http::otherContentError,        request);
    row("499: unknown",           499, http::otherContentError,        request);
    row("500",                    500, http::internalServerError,      service);
    row("501",                    501, http::notImplementedError,      service);
    row("502: gateway",           502, http::otherServerError,         service);
    row("503",                    503, http::unavailableError,         service);
    row("504: gateway",           504, http::otherServerError,         service);
    row("510: unknown",           510, http::otherServerError,         service);
    row("511: hotspot's login",   511, http::otherServerError,         network);
    row("512: unknown",           512, http::otherServerError,         service);
    row("599: unknown",           599, http::otherServerError,         service);
    row("600: unknown",           600, http::otherServerError,         service);
    row("999: unknown",           999, http::otherServerError,         service);
    // clang-format on
}

void TestExchangeError::statuses()
{
    QFETCH(int, status);
    QTEST(http::errorOfStatus(status), "error");
    QTEST(QString(http::nameOf(http::kindOfStatus(status))), "kind");
}

void TestExchangeError::kinds_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("kind");
    // clang-format off
    QTest::newRow("success")             << http::noError                  << u"none"_s;
    QTest::newRow("refused")             << http::connectionRefusedError   << u"network"_s;
    QTest::newRow("closed early")        << http::closedEarlyError         << u"network"_s;
    QTest::newRow("unknown host")        << http::hostNotFoundError        << u"network"_s;
    QTest::newRow("timeout")             << http::timeoutError             << u"network"_s;
    QTest::newRow("TLS")                 << http::tlsError                 << u"certificate"_s;
    QTest::newRow("other network fault") << http::unknownNetworkError      << u"network"_s;
    QTest::newRow("proxy refused")       << http::proxyRefusedError        << u"network"_s;
    QTest::newRow("proxy timeout")       << http::proxyTimeoutError        << u"network"_s;
    QTest::newRow("proxy password")      << http::proxyAuthenticationError << u"credentials"_s;
    QTest::newRow("forbidden")           << http::accessDeniedError        << u"credentials"_s;
    QTest::newRow("unauthorized")        << http::authenticationError      << u"credentials"_s;
    QTest::newRow("not found")           << http::notFoundError            << u"request"_s;
    QTest::newRow("bad request")         << http::badRequestError          << u"request"_s;
    QTest::newRow("no usable address")   << http::unusableRequestError     << u"request"_s;
    QTest::newRow("server's fault")      << http::internalServerError      << u"service"_s;
    QTest::newRow("unavailable")         << http::unavailableError         << u"service"_s;
    QTest::newRow("other server fault")  << http::otherServerError         << u"service"_s;
    // clang-format on
}

void TestExchangeError::kinds()
{
    QFETCH(int, error);
    QTEST(QString(http::nameOf(http::failureKind(error))), "kind");
}

void TestExchangeError::numbersAreQts()
{
    QCOMPARE(http::timeoutError, int(QNetworkReply::TimeoutError));
    QCOMPARE(http::tlsError, int(QNetworkReply::SslHandshakeFailedError));
    QCOMPARE(http::unknownNetworkError, int(QNetworkReply::UnknownNetworkError));
    QCOMPARE(http::proxyAuthenticationError, int(QNetworkReply::ProxyAuthenticationRequiredError));
    QCOMPARE(http::accessDeniedError, int(QNetworkReply::ContentAccessDenied));
    QCOMPARE(http::methodNotAllowedError, int(QNetworkReply::ContentOperationNotPermittedError));
    QCOMPARE(http::notFoundError, int(QNetworkReply::ContentNotFoundError));
    QCOMPARE(http::authenticationError, int(QNetworkReply::AuthenticationRequiredError));
    QCOMPARE(http::conflictError, int(QNetworkReply::ContentConflictError));
    QCOMPARE(http::goneError, int(QNetworkReply::ContentGoneError));
    QCOMPARE(http::otherContentError, int(QNetworkReply::UnknownContentError));
    QCOMPARE(http::unusableRequestError, int(QNetworkReply::ProtocolUnknownError));
    QCOMPARE(http::badRequestError, int(QNetworkReply::ProtocolInvalidOperationError));
    QCOMPARE(http::internalServerError, int(QNetworkReply::InternalServerError));
    QCOMPARE(http::notImplementedError, int(QNetworkReply::OperationNotImplementedError));
    QCOMPARE(http::unavailableError, int(QNetworkReply::ServiceUnavailableError));
    QCOMPARE(http::otherServerError, int(QNetworkReply::UnknownServerError));
}

void TestExchangeError::observerOfTheThread()
{
    RecordingObserver outer;
    RecordingObserver inner;
    http::tellObserver({.status = 1});
    {
        const http::ExchangeObservation observation(outer);
        http::tellObserver({.status = 2});
        {
            const http::ExchangeObservation nested(inner);
            http::tellObserver({.status = 3});
        }
        std::thread([] { http::tellObserver({.status = 4}); }).join();
        http::tellObserver({.status = 5});
    }
    http::tellObserver({.status = 6});
    QCOMPARE(outer.statuses, (QList<int>{2, 5}));
    QCOMPARE(inner.statuses, QList<int>{3});
}

QTEST_GUILESS_MAIN(TestExchangeError)
#include "tst_exchangeerror.moc"
