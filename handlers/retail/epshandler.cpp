#include "handlers/retail/epshandler.h"

#include "handlers/common/messagevalue.h"
#include "shared/core/inflight.h"
#include "shared/net/tcpconnect.h"

#include <log4qt/logger.h>

#include <QDeadlineTimer>
#include <QTcpSocket>

using namespace Qt::StringLiterals;

namespace {

constexpr int waitMs = 5000;

/// The identifying part of a frame; shorter or empty in a short frame.
QByteArray markOf(const QByteArray &frame)
{
    constexpr int offset = 3;
    constexpr int length = 8;
    return frame.mid(offset, length);
}

} // namespace

EpsHandler::EpsHandler()
    : BasicHandler(u"eps"_s)
{
}

bool EpsHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto frame = messageValue<QByteArray>(message, u"message"_s);
    // Connecting and writing may each take this long.
    const inflight::CallGuard guard{std::chrono::milliseconds(2 * waitMs)};
    QTcpSocket socket;
    // Any other number is truncated to 16 bits, to a valid port.
    const auto port = static_cast<quint16>(messageValue<int>(message, u"port"_s));
    if (!connectSocket(socket, messageValue<QString>(message, u"host"_s), port,
                       QDeadlineTimer(waitMs))) {
        logger()->warn(u"Не удалось подключиться к серверу"_s);
        return keep(u"нет соединения с сервером"_s, http::FailureKind::Network);
    }
    socket.write(frame);
    socket.waitForBytesWritten(waitMs);
    // Only bytes that have arrived by now; later ones are not waited for. Equal marks finish the
    // message with this warning, whatever its wording suggests.
    const QByteArray answer = socket.readAll();
    if (markOf(answer) != markOf(frame))
        return keep(answer.isEmpty() ? u"ответ ещё не пришёл"_s : u"метка в ответе не совпала"_s);
    logger()->warn(u"Некорректный ответ от сервера"_s);
    return true;
}
