#pragma once

#include "shared/core/basicexception.h"

#include <QByteArray>
#include <QMap>
#include <QMetaType>
#include <QUrl>
#include <QVariant>

namespace Log4Qt {
class Logger;
}

namespace tsum {

/// A prepared request could not be sent, or its answer was an error.
class Exception : public BasicException
{
public:
    using BasicException::BasicException;
};

/// A whole request, prepared as data. The property names are the keys under which a message holds
/// it; `serder` fills it.
class PreparedRequestBase
{
    Q_GADGET
    Q_PROPERTY(QByteArray method MEMBER method)
    Q_PROPERTY(QUrl url MEMBER url)
    Q_PROPERTY(QMap<QByteArray, QByteArray> headers MEMBER headers)
    Q_PROPERTY(QByteArray body MEMBER body)
    Q_PROPERTY(int timeout MEMBER timeout)

public:
    /// Makes the exchange. The JSON object or array of the reply, invalid when it holds neither.
    /// Throws Exception when no whole answer came or its status is not one of the 200s.
    QVariant getResponseVariant() const;

    /// The exchange is logged there. Borrowed; null, as at first, logs nothing.
    void setLogger(Log4Qt::Logger *to) { logger = to; }

    /// Without one, POST for a body and else GET.
    QByteArray method;
    QUrl url;
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    /// Seconds for the whole exchange; below 1 what RestClient does by itself.
    int timeout = 0;

private:
    Log4Qt::Logger *logger = nullptr;
};

} // namespace tsum
