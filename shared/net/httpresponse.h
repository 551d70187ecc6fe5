#pragma once

#include "shared/core/tr.h"
#include "shared/net/exchangeerror.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace http {

/// The largest answer of which the content is read.
constexpr qsizetype maxReplyBytes = 4 * 1024 * 1024;

/// The outcome of one exchange as a value.
struct Response
{
    /// The status that arrived, also when the body behind it was cut off; 0 when none did.
    int status = 0;
    /// What went wrong, in a sentence without secrets; empty after a clean exchange.
    tr::Tr errorText;
    /// 0 after an answer with a status of the 200s, else one of the numbers in exchangeerror.h.
    int errorCode = 0;
    /// What has to be put right; None when errorCode is 0. Decided where the failure arises, since
    /// one error number may have several causes.
    FailureKind failure = FailureKind::None;
    /// The bytes of a whole answer, unpacked where that is possible.
    QByteArray body;
    /// No whole answer came.
    bool networkError = false;

    /// A whole answer came, and nobody will read what it says.
    bool isTooLarge() const;
    /// The body as a JSON object; empty when it is none, or too large.
    QJsonObject responseObject() const;
    bool isNetworkError() const { return networkError; }
    FailureKind kind() const { return failure; }

    /// A whole answer. A status outside the 200s is an error.
    static Response answered(int status, const QByteArray &body);
    /// No whole answer; `status` is that of an answer that was cut off. The kind is that of the
    /// number.
    static Response failed(int errorCode, const tr::Tr &errorText, int status = 0);
    static Response failed(int errorCode, const tr::Tr &errorText, int status, FailureKind kind);
};

/// The document in the body of an answer; null when it is none or larger than `maxReplyBytes`, of
/// which the log is told. One of many small objects takes about thirty times the memory of its
/// text.
QJsonDocument parseReply(const QByteArray &body);

} // namespace http
