#pragma once

#include "shared/net/httpparams.h"
#include "shared/net/httpresponse.h"

#include <QDateTime>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

/// A request after all checks, ready to be sent.
struct Exchange
{
    QByteArray verb;
    /// An absolute http or https address.
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;
    /// Header names that HTTP does not allow; these headers are not in `headers`.
    QByteArrayList refusedHeaders;
    QByteArray body;
    QList<http::Part> parts;
    /// Limits the whole exchange.
    std::chrono::milliseconds timeout{0};
    QString certificatePath;
    QString certificatePassword;
    QString privateKeyPath;
    /// Whether to keep the header lines of the answer.
    bool keepHeaders = false;

    /// Case-insensitive.
    bool hasHeader(const char *name) const;
    bool isSecure() const;
};

struct ExchangeOutcome
{
    http::Response response;
    /// The header lines of the answer, status line first, if they were to be kept: the first 8 KiB,
    /// whole lines only.
    QList<QByteArray> headerLines = {};
    /// The size of the header lines beyond that limit.
    qsizetype omittedHeaderBytes = 0;
    /// The client certificate that was used, empty for none, and its expiry time in UTC; invalid if
    /// the file cannot be read.
    QString certificatePath = {};
    QDateTime certificateEnd = {};
    /// This machine's clock minus the Date of the answer; nothing without a valid Date.
    std::optional<std::chrono::seconds> clockDifference = {};
};
