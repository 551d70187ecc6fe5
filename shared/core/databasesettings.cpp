#include "shared/core/databasesettings.h"

#include "shared/core/paths.h"

using namespace Qt::StringLiterals;

namespace settings::database {

QString fileName()
{
    return name.valueOr(rootedPath(textOfLiteral(name.defaultValue)));
}

QString schemaName()
{
    return name.valueOr(u"queues"_s);
}

} // namespace settings::database
