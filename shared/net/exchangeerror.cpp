#include "shared/net/exchangeerror.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace {

using http::FailureKind;

/// The meaning of the statuses from `first` to `last`.
struct StatusMeaning
{
    int first;
    int last;
    int error;
    FailureKind kind;
};

// clang-format off
/// The first matching row counts.
constexpr StatusMeaning statusMeanings[] = {
    {200, 299, http::noError,                  FailureKind::None},
    {400, 400, http::badRequestError,          FailureKind::Request},
    {401, 401, http::authenticationError,      FailureKind::Credentials},
    // Payment required: the account at the service has not been paid for.
    {402, 402, http::otherContentError,        FailureKind::Credentials},
    {403, 403, http::accessDeniedError,        FailureKind::Credentials},
    {404, 404, http::notFoundError,            FailureKind::Request},
    {405, 405, http::methodNotAllowedError,    FailureKind::Request},
    {407, 407, http::proxyAuthenticationError, FailureKind::Credentials},
    // Request timeout.
    {408, 408, http::otherContentError,        FailureKind::Service},
    {409, 409, http::conflictError,            FailureKind::Request},
    {410, 410, http::goneError,                FailureKind::Request},
    {418, 418, http::badRequestError,          FailureKind::Request},
    // Misdirected, locked, failed dependency, too early: the same request may succeed later.
    {421, 421, http::otherContentError,        FailureKind::Service},
    {423, 425, http::otherContentError,        FailureKind::Service},
    // Too many requests.
    {429, 429, http::otherContentError,        FailureKind::Service},
    // Unavailable for legal reasons.
    {451, 451, http::otherContentError,        FailureKind::Service},
    {400, 499, http::otherContentError,        FailureKind::Request},
    {500, 500, http::internalServerError,      FailureKind::Service},
    {501, 501, http::notImplementedError,      FailureKind::Service},
    {503, 503, http::unavailableError,         FailureKind::Service},
    // Network authentication required: from a gateway on the way, such as a hotspot.
    {511, 511, http::otherServerError,         FailureKind::Network},
    {500, 999, http::otherServerError,         FailureKind::Service},
    // Redirects are not followed; any other status below 400 is not valid here.
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
        break;
    }
    return "service"_L1;
}

} // namespace http
