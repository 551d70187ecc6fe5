#include "tools/settings/pages.h"

#include <cstdio>
#include <string_view>

/// Writes the sample of the settings, or the page about them, to standard output.
int main(int argc, char **argv)
{
    const std::string_view wanted = argc == 2 ? argv[1] : "";
    if (wanted != "sample" && wanted != "markdown") {
        std::fputs("usage: setting-pages sample|markdown\n", stderr);
        return 2;
    }
    const QByteArray page =
        (wanted == "sample" ? settings::sampleFile() : settings::markdownPage()).toUtf8();
    const bool isWritten =
        std::fwrite(page.constData(), 1, static_cast<size_t>(page.size()), stdout)
            == static_cast<size_t>(page.size())
        && std::fflush(stdout) == 0;
    return isWritten ? 0 : 1;
}
