#include "app/queue.h"
#include "app/servicenotifier.h"
#include "shared/core/basicexception.h"
#include "shared/core/logging.h"
#include "shared/core/paths.h"
#include "shared/core/signalhandler.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QSettings>
#include <QTextCodec>
#include <QThreadPool>

#include <cstdlib>
#include <exception>
#include <ios>
#include <malloc.h>

using namespace Qt::StringLiterals;

namespace {

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

/// Lives from the start to the signal that ends the service. A delivery may then still be under way.
int serve()
{
    ServiceNotifier notifier;
    Queue queue;
    signalhandler::setAddittionalHandler([&queue, &notifier] {
        queue.stop();
        notifier.stopping();
    });
    queue.start();
    notifier.ready();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
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

    signalhandler::initSignalHandlers();
    signalhandler::setNeedCheckExitCode(false);

    const int result = serve();
    // Qt closes all database connections before it waits for the workers of its pool, and a delivery
    // that ends in between could not delete its message, which would go out once more.
    QThreadPool::globalInstance()->waitForDone();
    return result;
}
