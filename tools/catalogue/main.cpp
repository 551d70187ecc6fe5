#include "tools/catalogue/catalogue.h"

#include <cstdio>

/// Writes the page about the message types to standard output.
int main()
{
    const QByteArray page = catalogue::toMarkdown().toUtf8();
    const bool isWritten =
        std::fwrite(page.constData(), 1, static_cast<size_t>(page.size()), stdout)
            == static_cast<size_t>(page.size())
        && std::fflush(stdout) == 0;
    return isWritten ? 0 : 1;
}
