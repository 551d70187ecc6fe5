#include "handlers/forwarding/winelabcertificatehandler.h"

#include "handlers/forwarding/forwarding.h"
#include "shared/document/xmlutils.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .headers = Headers::Empty,
};

} // namespace

WinelabCertificateHandler::WinelabCertificateHandler()
    : BasicHandler(u"winelabcertificate"_s)
{
}

bool WinelabCertificateHandler::sendMessage(const Message &message)
{
    const auto client = makeRequest(message, *logger(), forwarding);
    if (client->errorCode() > 0)
        return false;
    const QDomDocument reply = xmlutils::parseXml(client->responseBody(), {u"status"_s});
    return xmlutils::getValueByTag(reply, u"status"_s, 0).toLower() == u"create";
}
