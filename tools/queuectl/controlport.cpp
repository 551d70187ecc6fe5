#include "tools/queuectl/controlport.h"

#include "app/settings.h"
#include "tools/queuectl/text.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTcpSocket>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int timeoutMs = 5000;
constexpr int connectTimeoutMs = 2000;

} // namespace

int controlPort()
{
    return settings::queue::port.value();
}

ServiceAnswer lookAtService()
{
    const auto answer = askService({u"db_errors_count"_s});
    if (answer && answer->contains(u"errorsCount"_s))
        return {PortState::Service, answer->value(u"errorsCount"_s).toInt()};
    // A number that is not a port would be cut to 16 bits and reach another program's port.
    if (controlPort() < 1 || controlPort() > maxPort)
        return {};
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost(u"127.0.0.1"_s, static_cast<quint16>(controlPort()));
    return {socket.waitForConnected(connectTimeoutMs) ? PortState::Other : PortState::Nobody, 0};
}

PortState controlPortState()
{
    return lookAtService().state;
}

StartAnswer askStart(const QString &type, const QString &cardNumber)
{
    // The path needs a card; a dash means no card.
    const auto answer = askService({u"start"_s, type, cardNumber.isEmpty() ? u"-"_s : cardNumber});
    if (!answer)
        return {};
    // The reply has no other value that tells the results apart.
    const QString text = answer->value(u"description"_s).toString();
    if (text == u"Обработчик успешно запущен")
        return {StartAnswer::State::Started, text};
    return {text == u"Обработчик уже запущен" ? StartAnswer::State::WasRunning
                                              : StartAnswer::State::Refused,
            text};
}

std::optional<QJsonObject> askService(const QStringList &parts)
{
    QString path;
    for (const QString &part : parts)
        path += u'/' + QString::fromLatin1(QUrl::toPercentEncoding(part));
    QNetworkAccessManager manager;
    manager.setProxy(QNetworkProxy::NoProxy);
    QNetworkRequest request(
        QUrl(u"http://127.0.0.1:%1%2"_s.arg(QString::number(controlPort()), path)));
    request.setTransferTimeout(timeoutMs);
    QNetworkReply *reply = manager.get(request);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll());
    if (reply->error() != QNetworkReply::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

Failure noService()
{
    return {
        NoService,
        text("The service does not answer on 127.0.0.1:%1; is it running? (systemctl status queue)",
             "Служба не отвечает на 127.0.0.1:%1; запущена ли она? (systemctl status queue)")
            .arg(controlPort())};
}

QJsonObject requireService(const QStringList &parts)
{
    const auto answer = askService(parts);
    if (!answer)
        throw noService();
    return *answer;
}

} // namespace queuectl
