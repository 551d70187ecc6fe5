#include "shared/net/exchangeerror.h"

using namespace Qt::StringLiterals;

namespace http {

int errorOfStatus(int status)
{
    switch (status) {
    // clang-format off
    case 400: return badRequestError;
    case 401: return authenticationError;
    case 403: return accessDeniedError;
    case 404: return notFoundError;
    case 405: return methodNotAllowedError;
    case 407: return proxyAuthenticationError;
    case 409: return conflictError;
    case 410: return goneError;
    case 418: return badRequestError;
    case 500: return internalServerError;
    case 501: return notImplementedError;
    case 503: return unavailableError;
    // clang-format on
    default:
        break;
    }
    if (status >= 200 && status < 300)
        return noError;
    return status < 500 ? otherContentError : otherServerError;
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
