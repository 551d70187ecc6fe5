#pragma once

#include "tools/queuectl/page/pagevalues.h"

#include <QByteArray>

namespace queuectl {

/// The values as one HTML page in the operator's language, UTF-8, which needs no script and no
/// other file: charts are inline SVG, and a policy in it forbids to load anything. Everything in
/// the values is escaped.
QByteArray renderPage(const PageValues &page);

} // namespace queuectl
