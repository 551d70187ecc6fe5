#include "app/dailyreport.h"
#include "app/queue.h"
#include "app/servicelock.h"
#include "app/servicenotifier.h"
#include "engine/journal.h"
#include "engine/journalsettings.h"
#include "shared/core/basicexception.h"
#include "shared/core/folderlock.h"
#include "shared/core/inflight.h"
#include "shared/core/logging.h"
#include "shared/core/paths.h"
#include "shared/core/signalhandler.h"

#include <log4qt/logmanager.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSettings>
#include <QTextCodec>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ios>
#include <malloc.h>
#include <memory>
#include <optional>
#include <string_view>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// The start was refused, and nothing was done. systemd tries again nevertheless: the process that
/// has locked the folder may end, and a till without a service is worse than a log line every ten
/// seconds.
constexpr int refusedExitCode = 2;

constexpr auto awaitInterval = std::chrono::milliseconds(20);
/// During a delivery that is within its timeouts, the service manager is asked once per interval
/// for `extension` more.
constexpr auto extensionInterval = std::chrono::seconds(1);
constexpr auto extension = std::chrono::seconds(10);
/// A partner that lets its result be polled again and again makes a delivery endless, but a till
/// must be able to shut down. The longest finite delivery asks three silent hosts for 180 seconds
/// each.
constexpr auto maxStopTime = std::chrono::minutes(15);

/// A failed database connection, at the start or in a worker, is not caught: the process ends, and
/// systemd starts it again. The log states the reason.
[[noreturn]] void endWithReason()
{
    // Several workers may lose the database at once; only the first logs.
    static std::atomic_flag isEnding = ATOMIC_FLAG_INIT;
    static thread_local bool isOurs = false;
    if (isOurs)
        std::abort();
    while (isEnding.test_and_set())
        ::pause();
    isOurs = true;
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

/// A till has little memory. By default glibc raises its mmap threshold to the size of the largest
/// block freed so far, so that after a few large answers each thread keeps that much memory.
void returnLargeBlocks()
{
    constexpr int largeBlockBytes = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, largeBlockBytes);
}

/// Runs before anything else: an engineer who asks for the options must not start a second service.
/// Returns nothing for a start without arguments.
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

/// False when another process works on the folder, or may do so undetected.
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

/// Shows the role to queuectl and systemctl.
void publishRole(const ServiceLock &serviceLock, FolderLock &lock, ServiceNotifier &notifier)
{
    QString role;
    QString status;
    switch (serviceLock.role()) {
    case ServiceRole::Active:
        role = u"active"_s;
        status = u"Обслуживает очередь"_s;
        break;
    case ServiceRole::StandBy:
        role = u"standby"_s;
        status = u"В резерве, очередь обслуживает другая служба"_s;
        break;
    case ServiceRole::Undecided:
        role = u"undecided"_s;
        status = u"Нет блокировки очереди на сервере базы данных, доставка не идёт"_s;
        break;
    }
    lock.setRole(role);
    // A service that does not share its table always delivers.
    if (serviceLock.isShared())
        notifier.status(status);
}

/// A second signal ends the process without waiting for deliveries. An interrupted message may have
/// been delivered, and is delivered again after the next start.
[[noreturn]] void exitImmediately()
{
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"queue"_s);
    const QList<inflight::Delivery> deliveries = inflight::deliveries();
    for (const inflight::Delivery &delivery : deliveries) {
        logger->error(
            u"Повторный сигнал завершения работы, доставка прервана: тип '%1', сообщение %2"_s.arg(
                delivery.type, QString::number(delivery.messageId)));
    }
    if (deliveries.isEmpty())
        logger->warn(u"Повторный сигнал завершения работы"_s);
    std::_Exit(EXIT_FAILURE);
}

/// Qt closes all database connections before it waits for its thread pool. A delivery that ends in
/// between could not delete its message and would repeat it.
void awaitWorkers(ServiceNotifier &notifier)
{
    QThreadPool *pool = QThreadPool::globalInstance();
    const QDeadlineTimer stopEnd(maxStopTime);
    QDeadlineTimer nextExtension;
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        if (pool->waitForDone(0)) {
            loop.quit();
            return;
        }
        if (!nextExtension.hasExpired())
            return;
        nextExtension.setRemainingTime(extensionInterval);
        const auto deliveries = inflight::deliveriesInTime(inflight::Clock::now());
        if (deliveries.isEmpty() || stopEnd.hasExpired())
            return;
        QStringList awaited;
        for (const inflight::Delivery &delivery : deliveries)
            awaited.append(u"%1 %2"_s.arg(delivery.type, QString::number(delivery.messageId)));
        notifier.extend(extension);
        notifier.status(u"Завершается, ждёт доставки: %1"_s.arg(awaited.join(u", "_s)));
    });
    timer.start(awaitInterval);
    if (!pool->waitForDone(0))
        loop.exec();
}

/// The receiver of all outcomes. Requires the settings.
std::shared_ptr<DailyReport> makeReport()
{
    namespace journal = settings::journal;
    std::shared_ptr<OutcomeSink> file;
    if (journal::enabled.value()) {
        file = std::make_shared<Journal>(
            journalFile(), JournalLimits{.rows = journal::rows.value(),
                                         .age = std::chrono::days(journal::days.value())});
    }
    return std::make_shared<DailyReport>(file);
}

/// Runs the service from its start to the end of the last delivery.
int serve(FolderLock &lock)
{
    ServiceNotifier notifier;
    ServiceLock serviceLock;
    QObject::connect(&serviceLock, &ServiceLock::roleChanged, &serviceLock,
                     [&] { publishRole(serviceLock, lock, notifier); });
    // Destroyed after the last delivery: the journal then writes what it has in memory.
    std::shared_ptr<DailyReport> report;
    int result = 0;
    {
        Queue queue(&serviceLock);
        report = makeReport();
        queue.setOutcomes(report);
        signalhandler::setAddittionalHandler([&queue, &notifier] {
            queue.stop();
            notifier.stopping();
        });
        queue.setServedHandler([&notifier, &report] {
            notifier.alive();
            report->reportIfDue();
        });
        queue.start();
        publishRole(serviceLock, lock, notifier);
        notifier.ready();
        result = QCoreApplication::exec();
        signalhandler::setAddittionalHandler(exitImmediately);
    }
    awaitWorkers(notifier);
    report->reportRest();
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    if (const std::optional<int> answered = answerArguments(argc, argv))
        return *answered;
    returnLargeBlocks();
    useUtf8Locale();
    // Only std::cout writes log lines, so it need not be synchronized with the C library's buffers.
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

    return serve(lock);
}
