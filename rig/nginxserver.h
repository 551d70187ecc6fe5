#pragma once

#include "rig/certificates.h"
#include "rig/portreservation.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

namespace rig {

/// A real nginx that speaks TLS on a free port of 127.0.0.1, from a temporary folder, for the
/// object's life. It answers each request with 200, or another status, and a line that tells how it
/// sees the client: "<subject of its certificate>|<number of the connection>".
class NginxServer
{
public:
    struct Setup
    {
        Certificates::Identity identity;
        /// Clients must show a certificate of this authority; none is asked for without it.
        QString clientAuthority;
        QString protocols = QStringLiteral("TLSv1.2 TLSv1.3");
        /// The authority's answer about the certificate (OCSP), handed out with it.
        QString staple = QString();
        /// How long an idle connection is kept. Its end is not announced.
        QString keepAlive = QStringLiteral("300s");
        int status = 200;
    };

    explicit NginxServer(const Setup &setup);
    ~NginxServer();

    int port() const;
    /// An address on this server by `host`, which must mean this machine.
    QUrl url(const QString &host = QStringLiteral("127.0.0.1")) const;

private:
    QTemporaryDir folder;
    QProcess process;
    PortReservation reservation;
};

} // namespace rig
