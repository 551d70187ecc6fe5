#include "shared/net/httpparams.h"

namespace http {

QByteArray Params::verb() const
{
    if (!method.isEmpty())
        return method;
    return body.isEmpty() && parts.isEmpty() ? "GET" : "POST";
}

} // namespace http
