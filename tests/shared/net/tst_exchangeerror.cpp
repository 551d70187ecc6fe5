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
    // clang-format off
    QTest::newRow("100: none of ours") << 100 << http::otherContentError;
    QTest::newRow("200: success")      << 200 << http::noError;
    QTest::newRow("299: success")      << 299 << http::noError;
    QTest::newRow("300: not followed") << 300 << http::otherContentError;
    QTest::newRow("307: not followed") << 307 << http::otherContentError;
    QTest::newRow("400")               << 400 << http::badRequestError;
    QTest::newRow("401")               << 401 << http::authenticationError;
    QTest::newRow("402: other")        << 402 << http::otherContentError;
    QTest::newRow("403")               << 403 << http::accessDeniedError;
    QTest::newRow("404")               << 404 << http::notFoundError;
    QTest::newRow("405")               << 405 << http::methodNotAllowedError;
    QTest::newRow("407")               << 407 << http::proxyAuthenticationError;
    QTest::newRow("409")               << 409 << http::conflictError;
    QTest::newRow("410")               << 410 << http::goneError;
    QTest::newRow("418")               << 418 << http::badRequestError;
    QTest::newRow("499: other")        << 499 << http::otherContentError;
    QTest::newRow("500")               << 500 << http::internalServerError;
    QTest::newRow("501")               << 501 << http::notImplementedError;
    QTest::newRow("502: other")        << 502 << http::otherServerError;
    QTest::newRow("503")               << 503 << http::unavailableError;
    QTest::newRow("599: other")        << 599 << http::otherServerError;
    // clang-format on
}

void TestExchangeError::statuses()
{
    QFETCH(int, status);
    QTEST(http::errorOfStatus(status), "error");
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
