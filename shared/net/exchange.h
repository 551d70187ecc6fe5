#pragma once

#include "shared/net/httpparams.h"
#include "shared/net/httpresponse.h"

#include <QDateTime>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

/// One request, checked and complete, as it goes out.
struct Exchange
{
    QByteArray verb;
    /// An absolute http or https address.
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;
    /// The names of headers that HTTP does not allow, which are not among the others.
    QByteArrayList refusedHeaders;
    QByteArray body;
    QList<http::Part> parts;
    /// Bounds the whole exchange.
    std::chrono::milliseconds timeout{0};
    QString certificatePath;
    QString certificatePassword;
    QString privateKeyPath;
    /// Whether the caller wants the header lines of the answer.
    bool keepHeaders = false;

    /// In whatever case it is written.
    bool hasHeader(const char *name) const;
    bool isSecure() const;
};

struct ExchangeOutcome
{
    http::Response response;
    /// The header lines of the answer, status line first, when they were to be kept: the first 8
    /// KiB of them, in whole lines.
    QList<QByteArray> headerLines = {};
    /// The size of the lines that were left out after these.
    qsizetype omittedHeaderBytes = 0;
    /// The client certificate that was used, empty for none, and when it ends, in UTC; invalid when
    /// the file does not tell.
    QString certificatePath = {};
    QDateTime certificateEnd = {};
    /// The clock of this machine minus the Date of the answer; nothing when it has no readable one.
    std::optional<std::chrono::seconds> clockDifference = {};
};
