#pragma once

#include <QLatin1StringView>

/// Every way in which an exchange with an outside service can end.
///
/// Error numbers are those of QNetworkReply::NetworkError; 0 is success. An answer of status 2xx is
/// a success, every other answer has the number that Qt gives for its status.
namespace http {

constexpr int noError = 0;

// No whole answer came.
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
/// The proxy wants credentials; also an answer with status 407.
constexpr int proxyAuthenticationError = 105;
/// There is no usable address, or no such verb. Nothing was sent.
constexpr int unusableRequestError = 301;

// An answer came, and its status says no.
constexpr int accessDeniedError = 201;
constexpr int methodNotAllowedError = 202;
constexpr int notFoundError = 203;
constexpr int authenticationError = 204;
constexpr int conflictError = 206;
constexpr int goneError = 207;
/// Any other status of the 300s and 400s. A redirect is one of them.
constexpr int otherContentError = 299;
/// Status 400 and 418.
constexpr int badRequestError = 302;
constexpr int internalServerError = 401;
constexpr int notImplementedError = 402;
constexpr int unavailableError = 403;
/// Any other status of 500 and more.
constexpr int otherServerError = 499;

/// What has to be put right before an exchange can succeed. It is decided where the failure arises:
/// an answer by its status (kindOfStatus()), what libcurl gives by its table (curlfailure.cpp).
enum class FailureKind
{
    /// Nothing: it succeeded.
    None,
    /// The way to the service: the name, the connection, the proxy, the time. No whole answer came,
    /// but for a gateway's own, status 511.
    Network,
    /// A certificate, its file, its password, or the trust in the server's; TLS as a whole.
    Certificate,
    /// Who we are, or what we may do: status 401, 402, 403 and 407.
    Credentials,
    /// What the till wrote: an address that is none, a request too long to be sent, or a status of
    /// the 400s by which the same request will not pass later either.
    Request,
    /// The service itself: a status of 500 and more or of the 300s, one of the 400s by which the
    /// same request may pass later (408, 421, 423 to 425, 429, 451), or an answer larger than any
    /// may be.
    Service,
};

/// The number for an answer of this status.
int errorOfStatus(int status);

/// The kind for an answer of this status.
FailureKind kindOfStatus(int status);

/// The kind of a failure of which only the number is known; None for 0.
FailureKind failureKind(int errorCode);

/// `none`, `network`, `certificate`, `credentials`, `request` or `service`.
QLatin1StringView nameOf(FailureKind kind);

} // namespace http
