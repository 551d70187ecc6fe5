#include "tools/queuectl/terminal.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString readAnswer()
{
    QByteArray line(256, '\0');
    if (!std::fgets(line.data(), static_cast<int>(line.size()), stdin))
        return {};
    return QString::fromUtf8(line.constData()).trimmed().toLower();
}

} // namespace

bool hasColours()
{
    return isTerminal() && qEnvironmentVariableIsEmpty("NO_COLOR") && knowsColours(qgetenv("TERM"));
}

bool canPlaceCursor()
{
    return isTerminal() && placesCursor(qgetenv("TERM"));
}

bool placesCursor(const QByteArray &terminalType)
{
    return !terminalType.isEmpty() && terminalType != "dumb" && terminalType != "unknown";
}

bool knowsColours(const QByteArray &terminalType)
{
    return placesCursor(terminalType) && !terminalType.startsWith("vt")
           && !terminalType.endsWith("-m") && !terminalType.endsWith("-mono");
}

bool isTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

void print(const QString &text)
{
    print(text.toUtf8());
}

void print(const QByteArray &bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    if (std::fwrite(bytes.constData(), 1, size, stdout) != size || std::fflush(stdout) != 0)
        throw Failure(Failed, text("Standard output cannot be written: %1",
                                   "Запись в стандартный вывод не удалась: %1")
                                  .arg(QString::fromLocal8Bit(std::strerror(errno))));
}

void printError(const QString &text)
{
    const QByteArray bytes = (text + u'\n').toUtf8();
    std::fputs(bytes.constData(), stderr);
}

void confirm(const QString &question)
{
    if (::isatty(STDIN_FILENO) != 1)
        throw Failure(NotConfirmed,
                      text("The command cannot ask for confirmation here; add --yes to confirm",
                           "Здесь нельзя запросить подтверждение; добавьте --yes, если уверены"));
    const QByteArray bytes = (escaping::escaped(question) + text(" [y/N] ", " [д/Н] ")).toUtf8();
    std::fputs(bytes.constData(), stderr);
    const QString answer = readAnswer();
    for (const QString &yes : {u"y"_s, u"yes"_s, u"д"_s, u"да"_s}) {
        if (answer == yes)
            return;
    }
    throw Failure(NotConfirmed, text("Nothing was changed", "Ничего не изменено"));
}

} // namespace queuectl
