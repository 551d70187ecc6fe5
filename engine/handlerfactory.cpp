#include "engine/handlerfactory.h"

#include "engine/basichandler.h"

#include <log4qt/logmanager.h>

using namespace Qt::StringLiterals;

HandlerFactory::HandlerFactory(std::span<const HandlerRow> rows)
    : logger(Log4Qt::LogManager::logger(u"handlerfactory"_s))
{
    for (const HandlerRow &row : rows) {
        const QString type = QString::fromUtf16(row.type);
        const QStringList references =
            QString::fromUtf16(row.references).split(u' ', Qt::SkipEmptyParts);
        builders.insert(type, [type, build = row.build, references] {
            BasicHandler *handler = build(type);
            handler->setReferences(references);
            return handler;
        });
    }
}

HandlerFactory::~HandlerFactory() = default;

BasicHandler *HandlerFactory::create(const QString &type)
{
    const auto builder = builders.constFind(type);
    if (builder == builders.constEnd()) {
        logger->warn(u"Не найден обработчик для сообщений типа '%1'"_s, type);
        return nullptr;
    }
    return (*builder)();
}
