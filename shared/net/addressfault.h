#pragma once

#include "shared/core/tr.h"

class QUrl;

/// Why a request cannot go to `url`, with the address as written in the message or setting; empty
/// if it can. Account and query are masked.
tr::Tr addressFault(const QUrl &url);

/// The address as text, without its password. If it is invalid, as maskedAddress() shows what was
/// written.
QString shownAddress(const QUrl &url);

/// An address, valid or not, without account and query, on one line.
QString maskedAddress(const QString &text);
