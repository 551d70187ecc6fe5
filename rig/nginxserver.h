#pragma once

#include "rig/certificates.h"
#include "rig/portreservation.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

namespace rig {

/// An nginx with TLS on a free port of 127.0.0.1, in a temporary folder, for the object's life. It
/// answers each request with 200, or another status, and a line with the client's data: "<subject
/// of its certificate>|<number of the connection>".
class NginxServer
{
public:
    struct Setup
    {
        Certificates::Identity identity;
        /// Clients must have a certificate of this authority. Empty: none is requested.
        QString clientAuthority;
        QString protocols = QStringLiteral("TLSv1.2 TLSv1.3");
        /// The OCSP response that the server staples.
        QString staple = QString();
        /// How long an idle connection is kept. Its end is not announced.
        QString keepAlive = QStringLiteral("300s");
        int status = 200;
    };

    explicit NginxServer(const Setup &setup);
    ~NginxServer();

    int port() const;
    /// A URL of this server; `host` must resolve to this machine.
    QUrl url(const QString &host = QStringLiteral("127.0.0.1")) const;

private:
    QTemporaryDir folder;
    QProcess process;
    PortReservation reservation;
};

} // namespace rig
