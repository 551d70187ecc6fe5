// Logs as its arguments say, so that a test can check the lines of a whole process.

#include "shared/core/logging.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QFile>

#include <csignal>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

Log4Qt::Logger *cardlab()
{
    return Log4Qt::LogManager::logger(u"cardlab"_s);
}

void logEveryLevel()
{
    cardlab()->trace(u"след"_s);
    cardlab()->debug(u"отладка"_s);
    cardlab()->info(u"информация"_s);
    cardlab()->warn(u"предупреждение"_s);
    cardlab()->error(u"ошибка"_s);
    Log4Qt::LogManager::logger(u"iturup"_s)->info(u"чужая"_s);
}

void logFromThreads(int lines)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread, lines] {
            for (int line = 0; line < lines; ++line)
                cardlab()->info(u"поток %1 строка %2 конец"_s.arg(thread).arg(line));
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

/// Leaves running threads that log without end.
void logBeyondTheEnd()
{
    std::atomic<int> started = 0;
    for (int thread = 0; thread < 4; ++thread) {
        std::thread([&started] {
            cardlab()->info(u"работа"_s);
            ++started;
            started.notify_one();
            for (;;)
                Log4Qt::LogManager::logger(u"cardlab"_s)->info(u"работа"_s);
        }).detach();
    }
    for (int count = started; count < 4; count = started)
        started.wait(count);
}

int threadCount()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = status.readAll();
    const qsizetype start = text.indexOf("Threads:") + 8;
    return text.sliced(start, text.indexOf('\n', start) - start).trimmed().toInt();
}

} // namespace

int main(int argc, char *argv[])
{
    useUtf8Locale();
    const QCoreApplication application(argc, argv);
    setUpLogging();
    const QString what = application.arguments().value(1);
    const QString argument = application.arguments().value(2);
    if (what == u"levels")
        logEveryLevel();
    else if (what == u"say")
        cardlab()->info(argument);
    else if (what == u"fill")
        cardlab()->info(u"начало %1 конец"_s, argument);
    else if (what == u"repeat")
        for (int line = 0; line < argument.toInt(); ++line)
            cardlab()->info(QString::number(line).rightJustified(1000, u'.'));
    else if (what == u"threads")
        logFromThreads(argument.toInt());
    else if (what == u"beyond")
        logBeyondTheEnd();
    else if (what == u"killed") {
        cardlab()->info(argument);
        raise(SIGKILL);
    } else if (what == u"idle")
        // Ends only when no more threads than these are left.
        while (threadCount() > argument.toInt())
            std::this_thread::yield();
    else
        return 1;
    return 0;
}
