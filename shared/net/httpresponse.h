#pragma once

#include "shared/core/tr.h"
#include "shared/net/exchangeerror.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace http {

/// The largest answer whose content is parsed.
constexpr qsizetype maxReplyBytes = 4 * 1024 * 1024;

/// The result of one exchange as a value.
struct Response
{
    /// The received status, also if the body was truncated; 0 for none.
    int status = 0;
    /// The error, in a sentence without secrets; empty after success.
    tr::Tr errorText;
    /// 0 after an answer with a 2xx status, otherwise one of the numbers in exchangeerror.h.
    int errorCode = 0;
    /// What must be corrected; None if errorCode is 0. Decided where the failure is detected, since
    /// one error number may have several causes.
    FailureKind failure = FailureKind::None;
    /// The bytes of a complete answer, decompressed if possible.
    QByteArray body;
    /// No complete answer.
    bool networkError = false;

    /// The answer is complete but exceeds `maxReplyBytes`, so it is not parsed.
    bool isTooLarge() const;
    /// The body as a JSON object; empty if it is not one, or too large.
    QJsonObject responseObject() const;
    bool isNetworkError() const { return networkError; }
    FailureKind kind() const { return failure; }

    /// A complete answer. A status other than 2xx is an error.
    static Response answered(int status, const QByteArray &body);
    /// No complete answer; `status` is that of a truncated answer. The kind follows from the
    /// number.
    static Response failed(int errorCode, const tr::Tr &errorText, int status = 0);
    static Response failed(int errorCode, const tr::Tr &errorText, int status, FailureKind kind);
};

/// The JSON in the body of an answer. Null if it is not JSON, or larger than `maxReplyBytes`, which
/// is logged. A document of many small objects takes about thirty times the memory of its text.
QJsonDocument parseReply(const QByteArray &body);

} // namespace http
