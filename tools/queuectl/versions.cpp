#include "tools/queuectl/versions.h"

#include "tools/queuectl/messagerows.h"

#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

QStringList versionLines()
{
    return {u"queue %1"_s.arg(QStringLiteral(QUEUE_VERSION)),
            u"Qt %1"_s.arg(QString::fromLatin1(qVersion())),
            u"%1, kernel %2, %3"_s.arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion(),
                                       QSysInfo::currentCpuArchitecture()),
            u"database %1"_s.arg(databasePlace().value(u"driver"_s).toString())};
}

} // namespace queuectl
