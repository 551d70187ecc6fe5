#pragma once

#include "shared/core/tr.h"

class QUrl;

/// Why no request can go to `url`, with the address as the till wrote it; empty when one can.
/// Account and query are masked.
tr::Tr addressFault(const QUrl &url);

/// The text of an address, good or not, without account and query, on one line.
QString maskedAddress(const QString &text);
