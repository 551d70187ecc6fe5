#include "shared/net/preparedrequestbase.h"

#include "shared/core/mockfactory.h"
#include "shared/net/restclient.h"

namespace tsum {

QVariant PreparedRequestBase::getResponseVariant() const
{
    http::Params params;
    params.method = method;
    params.url = url;
    params.headers = headers;
    params.body = body;

    const auto client = MockFactory<RestClient>::create();
    client->setLogger(logger);
    client->setTimeout(timeout);
    client->send(params);
    if (client->errorCode() > 0)
        throw Exception(client->errorText());
    return client->responseVariant();
}

} // namespace tsum
