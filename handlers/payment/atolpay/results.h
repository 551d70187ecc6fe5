#pragma once

#include <QString>

/// What the service says of a transaction.
enum class AtolPayTransactionStatus
{
    /// No reply, or one that names no status of this list.
    Unknown = 0,
    InProgress = 1,
    Completed = 2,
    Error = 3,
    Refunded = 4,
    RefundInProgress = 5,
    PartialRefunded = 6,
    Expired = 7,
};

struct AtolPayStatusResult
{
    /// The payment has gone through.
    bool success = false;
    /// The exchange failed, or its reply holds nothing at all.
    bool noReply = false;
    AtolPayTransactionStatus status = AtolPayTransactionStatus::Unknown;
};

struct AtolPayRefundResult
{
    bool success = false;
    /// Why it failed.
    QString message;
    QString transactionId;
    /// The exchange failed, or its reply holds nothing at all.
    bool noReply = false;
};

struct AtolPayRegisterResult
{
    bool success = false;
    /// What the customer's QR code holds.
    QString payload;
    QString transactionId;
    QString message;
};
