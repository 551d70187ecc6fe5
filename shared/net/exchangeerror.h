#pragma once

#include <QLatin1StringView>

/// The results of an exchange with an outside service.
///
/// Error numbers are those of QNetworkReply::NetworkError; 0 is success. An answer with status 2xx
/// is a success; any other status has the number that Qt gives it.
namespace http {

constexpr int noError = 0;

// No complete answer.
constexpr int connectionRefusedError = 1;
constexpr int closedEarlyError = 2;
constexpr int hostNotFoundError = 3;
constexpr int timeoutError = 4;
/// TLS failed, or a certificate file could not be used.
constexpr int tlsError = 6;
constexpr int unknownNetworkError = 99;
constexpr int proxyRefusedError = 101;
constexpr int proxyClosedError = 102;
constexpr int proxyNotFoundError = 103;
constexpr int proxyTimeoutError = 104;
/// The proxy requires credentials; also any answer with status 407.
constexpr int proxyAuthenticationError = 105;
/// The address or the verb is unusable. Nothing was sent.
constexpr int unusableRequestError = 301;

// An answer with an error status.
constexpr int accessDeniedError = 201;
constexpr int methodNotAllowedError = 202;
constexpr int notFoundError = 203;
constexpr int authenticationError = 204;
constexpr int conflictError = 206;
constexpr int goneError = 207;
/// Any other 3xx or 4xx status, redirects included.
constexpr int otherContentError = 299;
/// Status 400 and 418.
constexpr int badRequestError = 302;
constexpr int internalServerError = 401;
constexpr int notImplementedError = 402;
constexpr int unavailableError = 403;
/// Any other status from 500 on.
constexpr int otherServerError = 499;

/// What must be corrected before an exchange can succeed. Decided where the failure is detected:
/// for an answer by its status (kindOfStatus()), for libcurl's errors by a table (curlfailure.cpp).
enum class FailureKind
{
    /// None: the exchange succeeded.
    None,
    /// The path to the service: name lookup, connection, proxy, timeout. No complete answer, except
    /// for a gateway's status 511.
    Network,
    /// A certificate, its file or password, trust in the server's certificate, or TLS in general.
    Certificate,
    /// Authentication or permission: status 401, 402, 403 and 407.
    Credentials,
    /// The till's data: an invalid address, a request too long to send, or a 4xx status with which
    /// the same request will fail again.
    Request,
    /// The service: a 5xx or 3xx status, a 4xx status with which the same request may succeed later
    /// (408, 421, 423 to 425, 429, 451), or an answer above the size limit.
    Service,
};

/// The number for an answer of this status.
int errorOfStatus(int status);

/// The kind for an answer of this status.
FailureKind kindOfStatus(int status);

/// The kind for an error number without more information; None for 0.
FailureKind failureKind(int errorCode);

/// `none`, `network`, `certificate`, `credentials`, `request` or `service`.
QLatin1StringView nameOf(FailureKind kind);

} // namespace http
