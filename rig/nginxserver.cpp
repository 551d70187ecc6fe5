#include "rig/nginxserver.h"

#include "rig/childprocess.h"

#include <QFile>
#include <QStandardPaths>
#include <QTcpSocket>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

constexpr auto configuration = R"(daemon off;
master_process off;
pid %1/nginx.pid;
error_log stderr warn;
events {}
http {
    access_log off;
    client_body_temp_path %1;
    proxy_temp_path %1;
    fastcgi_temp_path %1;
    uwsgi_temp_path %1;
    scgi_temp_path %1;
    keepalive_timeout %7;
    server {
        listen 127.0.0.1:%2 ssl;
        ssl_certificate %3;
        ssl_certificate_key %4;
        ssl_protocols %5;
        ssl_ciphers ALL:@SECLEVEL=0;
        ssl_session_cache shared:sessions:1m;
        %6
        location / { return %8 "$ssl_client_s_dn|$connection"; }
    }
}
)"_L1;

/// Debian installs it in sbin, which is on an administrator's PATH only.
QString program()
{
    const QString found = QStandardPaths::findExecutable(u"nginx"_s);
    return found.isEmpty() ? u"/usr/sbin/nginx"_s : found;
}

} // namespace

NginxServer::NginxServer(const Setup &setup)
{
    reservation.lend();
    const QString staple = setup.staple.isEmpty()
                               ? QString()
                               : u"ssl_stapling on; ssl_stapling_file %1;"_s.arg(setup.staple);
    const QString clients =
        setup.clientAuthority.isEmpty()
            ? QString()
            : u"ssl_verify_client on; ssl_client_certificate %1;"_s.arg(setup.clientAuthority);
    QFile file(folder.filePath(u"nginx.conf"_s));
    if (!file.open(QIODevice::WriteOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    file.write(QString(configuration)
                   .arg(folder.path(), QString::number(port()), setup.identity.certificate,
                        setup.identity.key, setup.protocols, clients + staple, setup.keepAlive,
                        QString::number(setup.status))
                   .toUtf8());
    file.close();

    process.setChildProcessModifier(dyingWithThisProcess());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program(),
                  {u"-e"_s, u"stderr"_s, u"-p"_s, folder.path(), u"-c"_s, file.fileName()});
    if (!process.waitForStarted())
        qFatal("nginx: %s", qPrintable(process.errorString()));
    // It accepts connections once it has read its configuration.
    while (process.state() == QProcess::Running) {
        QTcpSocket socket;
        socket.connectToHost(u"127.0.0.1"_s, reservation.port());
        if (socket.waitForConnected())
            return;
        process.waitForFinished(10);
    }
    qFatal("nginx has ended with %d", process.exitCode());
}

NginxServer::~NginxServer()
{
    process.kill();
    process.waitForFinished();
}

int NginxServer::port() const
{
    return reservation.port();
}

QUrl NginxServer::url(const QString &host) const
{
    return QUrl(u"https://%1:%2/"_s.arg(host, QString::number(port())));
}

} // namespace rig
