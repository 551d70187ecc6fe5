#include "app/queue.h"
#include "app/servicenotifier.h"
#include "shared/core/basicexception.h"
#include "shared/core/folderlock.h"
#include "shared/core/logging.h"
#include "shared/core/paths.h"
#include "shared/core/signalhandler.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QSettings>
#include <QTextCodec>
#include <QThreadPool>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ios>
#include <malloc.h>
#include <optional>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

/// The start was refused, and nothing was done. systemd tries again all the same: the process that has
/// the folder may end, and a till without a service is worse than a line every ten seconds.
constexpr int refusedExitCode = 2;

/// A connection to the database that cannot be opened, at the start or by a worker, is not caught: the
/// process ends, and systemd starts it again. The log says why it ended.
[[noreturn]] void endWithReason()
{
    QString reason = u"причина неизвестна"_s;
    if (const std::exception_ptr current = std::current_exception()) {
        try {
            std::rethrow_exception(current);
        } catch (const BasicException &exception) {
            Log4Qt::LogManager::logger(u"queue"_s)
                ->error(u"Аварийное завершение работы: %1"_s, exception.tr().ru());
            std::_Exit(EXIT_FAILURE);
        } catch (const std::exception &exception) {
            reason = QString::fromUtf8(exception.what());
        } catch (...) {
        }
    }
    Log4Qt::LogManager::logger(u"queue"_s)->error(u"Аварийное завершение работы: %1"_s, reason);
    std::abort();
}

/// The till has little memory to spare. By itself the C library raises the size from which a block is
/// given back as soon as it is freed to that of the largest one freed so far, and after a few large
/// answers each thread would hold on to the memory of the largest.
void returnLargeBlocks()
{
    constexpr int largeBlockBytes = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, largeBlockBytes);
}

/// Before anything is touched: a till's engineer who asks the program for its options must not start a
/// second service. Nothing for a start without arguments.
std::optional<int> answerArguments(int argc, char **argv)
{
    if (argc < 2)
        return {};
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument == "--version") {
        std::puts("queue " QUEUE_VERSION);
        return EXIT_SUCCESS;
    }
    if (argument == "--help") {
        std::puts("queue доставляет сообщения кассы из таблицы message. Это служба systemd, она "
                  "запускается без параметров:\n"
                  "  systemctl status queue\n"
                  "Просмотр очереди и действия над ней: queuectl --help.\n"
                  "Описание: man queue.");
        return EXIT_SUCCESS;
    }
    std::fputs("queue не принимает параметров, кроме --help и --version; служба не запущена. "
               "Для просмотра очереди служит queuectl.\n",
               stderr);
    return refusedExitCode;
}

/// False when another process works on the folder, or may do so unseen.
bool lockFolder(FolderLock &lock)
{
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"queue"_s);
    const QString path = serviceLockFile();
    QString refusal;
    switch (lock.take(u"starting"_s)) {
    case FolderLock::Result::Taken:
        return true;
    case FolderLock::Result::Unavailable:
        logger->error(
            u"Не удалось заблокировать файл '%1' (%2), служба работает без защиты от второго запуска"_s
                .arg(path, lock.reason()));
        return true;
    case FolderLock::Result::Held: {
        const auto holder = FolderLock::holder(path);
        refusal = u"Каталог '%1' уже обслуживает процесс %2, второй не запускается"_s.arg(
            QFileInfo(path).path(),
            holder && holder->processId > 0 ? QString::number(holder->processId) : u"?"_s);
        break;
    }
    case FolderLock::Result::Refused:
        refusal =
            u"Файл '%1' недоступен (%2), служба не запускается, проверьте его владельца и права"_s
                .arg(path, lock.reason());
        break;
    }
    logger->error(refusal);
    std::fputs(qPrintable(refusal + u'\n'), stderr);
    return false;
}

/// Lives from the start to the signal that ends the service. A delivery may then still be under way.
int serve(FolderLock &lock)
{
    ServiceNotifier notifier;
    Queue queue;
    signalhandler::setAddittionalHandler([&queue, &notifier] {
        queue.stop();
        notifier.stopping();
    });
    queue.start();
    lock.setRole(u"active"_s);
    notifier.ready();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    if (const std::optional<int> answered = answerArguments(argc, argv))
        return *answered;
    returnLargeBlocks();
    useUtf8Locale();
    // The log's lines go out by the stream alone, not through the C library's buffers, too.
    std::ios::sync_with_stdio(false);
    std::set_terminate(endWithReason);

    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"queue"_s);
    QCoreApplication::setOrganizationName(u"Tallo"_s);
    QCoreApplication::setOrganizationDomain(u"tallo.local"_s);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       rootedPath(u"/tallocash/cash/conf/"_s));
    setUpLogging();

    FolderLock lock(serviceLockFile());
    if (!lockFolder(lock))
        return refusedExitCode;
    signalhandler::initSignalHandlers();
    signalhandler::setNeedCheckExitCode(false);

    const int result = serve(lock);
    // Qt closes all database connections before it waits for the workers of its pool, and a delivery
    // that ends in between could not delete its message, which would go out once more.
    QThreadPool::globalInstance()->waitForDone();
    return result;
}
