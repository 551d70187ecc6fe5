#pragma once

#include <QString>

namespace settings {

/// packaging/queue.ini.sample: every setting, commented out, with its default.
QString sampleFile();
/// docs/settings.md.
QString markdownPage();

} // namespace settings
