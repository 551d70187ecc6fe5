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

/// A prepared request could not be sent, or was answered with an error.
class Exception : public BasicException
{
public:
    using BasicException::BasicException;
};

/// A whole request, prepared as data. The property names are the keys in a message; `serder` fills
/// them.
class PreparedRequestBase
{
    Q_GADGET
    Q_PROPERTY(QByteArray method MEMBER method)
    Q_PROPERTY(QUrl url MEMBER url)
    Q_PROPERTY(QMap<QByteArray, QByteArray> headers MEMBER headers)
    Q_PROPERTY(QByteArray body MEMBER body)
    Q_PROPERTY(int timeout MEMBER timeout)

public:
    /// Performs the exchange. Returns the JSON object or array of the reply; invalid if the reply
    /// is neither. Throws Exception without a complete answer, and for a status other than 2xx.
    QVariant getResponseVariant() const;

    /// The log of the exchange, borrowed; null, the default, logs nothing.
    void setLogger(Log4Qt::Logger *to) { logger = to; }

    /// If empty: POST with a body, GET without.
    QByteArray method;
    QUrl url;
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;
    /// Seconds for the whole exchange; below 1 means RestClient's default.
    int timeout = 0;

private:
    Log4Qt::Logger *logger = nullptr;
};

} // namespace tsum
