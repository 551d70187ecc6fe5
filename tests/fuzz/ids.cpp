#include "app/queuehandler.h"
#include "handlers/handlertable.h"
#include "shared/core/paths.h"
#include "tests/fuzz/fuzz.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

/// The file of the fail ids as a start finds it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::till();
    static const QString path = rootedPath(u"/tallocash/cash/queue/ids.json"_s);
    static const auto state = std::make_shared<SharedState>();
    static QueueHandler handler(handlerTable(), state);

    fuzz::writeFile(path,
                    QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    state->startIds.lock()->clear();
    handler.loadStartIds();
    const QMap<QString, int> loaded = state->startIds.copy();
    state->startIds.lock()->clear();

    if (loaded.isEmpty())
        return 0;
    // What one run of the service saves, the next one loads.
    state->startIds.lock()->insert(loaded);
    handler.saveStartIds();
    QFile file(path);
    fuzz::check(file.open(QIODevice::ReadOnly)
                    && QJsonDocument::fromJson(file.readAll()).isObject(),
                "the saved file is no JSON object");
    state->startIds.lock()->clear();
    handler.loadStartIds();
    fuzz::check(state->startIds.copy() == loaded,
                "the fail ids changed on their way through the file");
    return 0;
}
