#pragma once

#include <QString>

/// The state of a transaction at the service.
enum class AtolPayTransactionStatus
{
    /// No reply, or an unknown status.
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
    bool success = false;
    /// The exchange failed, or its reply is empty.
    bool noReply = false;
    AtolPayTransactionStatus status = AtolPayTransactionStatus::Unknown;
};

struct AtolPayRefundResult
{
    bool success = false;
    /// The reason of the failure.
    QString message;
    QString transactionId;
    /// The exchange failed, or its reply is empty.
    bool noReply = false;
};

struct AtolPayRegisterResult
{
    bool success = false;
    /// The content of the customer's QR code.
    QString payload;
    QString transactionId;
    QString message;
};
