#include "app/queue.h"
#include "shared/core/config.h"
#include "shared/core/paths.h"
#include "tests/fuzz/fuzz.h"

#include <QDir>
#include <QMetaObject>
#include <QThreadPool>

using namespace Qt::StringLiterals;

namespace {

/// Checks the arguments of the commands and their answers.
class WatchedQueue : public Queue
{
public:
    QJsonObject messages(const QStringList &parts) override
    {
        ++commands;
        const QJsonObject answer = Queue::messages(parts);
        fuzz::check(parts.value(0) == u"messages", "a wrong command");
        // The table is empty, so a well-formed request is answered with false.
        fuzz::check(answer.value(u"result"_s).toBool() == (parts.size() != 3),
                    "a wrong answer to a question for messages");
        return answer;
    }

    QJsonObject start(const QStringList &parts) override
    {
        ++commands;
        const QJsonObject answer = Queue::start(parts);
        fuzz::check(parts.value(0) == u"start", "a wrong command");
        fuzz::check(answer.value(u"description"_s).toString()
                        == (parts.size() == 3 ? u"Не удалось запустить обработчик"_s
                                              : u"Некорректные параметры запроса"_s),
                    "a wrong answer to a forced start");
        return answer;
    }

    QJsonObject status(const QStringList &parts) override
    {
        ++commands;
        const QJsonObject answer = Queue::status(parts);
        fuzz::check(answer.value(u"messagesCount"_s).toInt(-1) == 0, "a wrong status");
        return answer;
    }

    int commands = 0;
};

std::unique_ptr<WatchedQueue> startedQueue()
{
    fuzz::writeFile(rootedPath(u"/tallocash/cash/conf/tcash.ini"_s), "[queue]\nport = 0\n");
    auto queue = std::make_unique<WatchedQueue>();
    static_cast<Queue &>(*queue).start();
    // No worker may run: its threads would mix the results of different inputs.
    QThreadPool::globalInstance()->setMaxThreadCount(0);
    return queue;
}

} // namespace

/// The first line of a request to the control port, routed like a received request.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::till();
    static const std::unique_ptr<WatchedQueue> queue = startedQueue();

    const QByteArray line(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const RequestHeader header(line);
    const QString path = header.getPath();
    const QByteArray target = line.simplified().split(' ').value(1);
    fuzz::check(path.count(u'/') <= target.count('/') + 1, "a slash came out of a code");
    const QString command = path.split(u'/', Qt::SkipEmptyParts).value(0);
    const bool isWatched = command == u"messages" || command == u"start" || command == u"status";

    queue->commands = 0;
    const bool isRouted =
        QMetaObject::invokeMethod(queue.get(), "dataReceived", Qt::DirectConnection,
                                  Q_ARG(RequestHeader, header), Q_ARG(QByteArray, QByteArray()));
    fuzz::check(isRouted, "there is no route into the service");
    fuzz::check(queue->commands == int(isWatched), "a request was routed to another command");
    header.isKeepAlive();
    return 0;
}
