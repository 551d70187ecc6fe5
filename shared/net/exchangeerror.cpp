#include "shared/net/exchangeerror.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

using http::FailureKind;

/// What the statuses from `first` to `last` say.
struct StatusMeaning
{
    int first;
    int last;
    int error;
    FailureKind kind;
};

// clang-format off
/// The first row that has the status counts.
constexpr StatusMeaning statusMeanings[] = {
    {200, 299, http::noError,                  FailureKind::None},
    {400, 400, http::badRequestError,          FailureKind::Request},
    {401, 401, http::authenticationError,      FailureKind::Credentials},
    // The account at the service is not paid for.
    {402, 402, http::otherContentError,        FailureKind::Credentials},
    {403, 403, http::accessDeniedError,        FailureKind::Credentials},
    {404, 404, http::notFoundError,            FailureKind::Request},
    {405, 405, http::methodNotAllowedError,    FailureKind::Request},
    {407, 407, http::proxyAuthenticationError, FailureKind::Credentials},
    // The service did not get the request in its time.
    {408, 408, http::otherContentError,        FailureKind::Service},
    {409, 409, http::conflictError,            FailureKind::Request},
    {410, 410, http::goneError,                FailureKind::Request},
    {418, 418, http::badRequestError,          FailureKind::Request},
    // Misdirected, locked, waiting for another request, too early: the same request may pass later.
    {421, 421, http::otherContentError,        FailureKind::Service},
    {423, 425, http::otherContentError,        FailureKind::Service},
    // Too many requests.
    {429, 429, http::otherContentError,        FailureKind::Service},
    // Closed for legal reasons.
    {451, 451, http::otherContentError,        FailureKind::Service},
    {400, 499, http::otherContentError,        FailureKind::Request},
    {500, 500, http::internalServerError,      FailureKind::Service},
    {501, 501, http::notImplementedError,      FailureKind::Service},
    {503, 503, http::unavailableError,         FailureKind::Service},
    // Said by a gateway on the way, such as a hotspot, that wants a login first.
    {511, 511, http::otherServerError,         FailureKind::Network},
    {500, 999, http::otherServerError,         FailureKind::Service},
    // A redirect has not been carried out; neither has what no answer should have.
    {  0, 399, http::otherContentError,        FailureKind::Service},
};
// clang-format on

const StatusMeaning &meaningOf(int status)
{
    return *std::find_if(std::begin(statusMeanings), std::end(statusMeanings) - 1,
                         [status](const StatusMeaning &meaning) {
                             return meaning.first <= status && status <= meaning.last;
                         });
}

} // namespace

namespace http {

int errorOfStatus(int status)
{
    return meaningOf(status).error;
}

FailureKind kindOfStatus(int status)
{
    return meaningOf(status).kind;
}

FailureKind failureKind(int errorCode)
{
    switch (errorCode) {
    case noError:
        return FailureKind::None;
    case tlsError:
        return FailureKind::Certificate;
    case accessDeniedError:
    case authenticationError:
    case proxyAuthenticationError:
        return FailureKind::Credentials;
    case unusableRequestError:
    case methodNotAllowedError:
    case notFoundError:
    case conflictError:
    case goneError:
    case otherContentError:
    case badRequestError:
        return FailureKind::Request;
    default:
        return errorCode < accessDeniedError ? FailureKind::Network : FailureKind::Service;
    }
}

QLatin1StringView nameOf(FailureKind kind)
{
    switch (kind) {
    case FailureKind::None:
        return "none"_L1;
    case FailureKind::Network:
        return "network"_L1;
    case FailureKind::Certificate:
        return "certificate"_L1;
    case FailureKind::Credentials:
        return "credentials"_L1;
    case FailureKind::Request:
        return "request"_L1;
    case FailureKind::Service:
        return "service"_L1;
    }
    Q_UNREACHABLE();
}

} // namespace http
