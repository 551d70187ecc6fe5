#include "app/servicelock.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasevalues.h"
#include "shared/core/serverlock.h"

#include <log4qt/logmanager.h>

#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {

const QString connectionName = u"queue-service-lock"_s;

/// Time between two checks of the lock, and between two attempts to reconnect.
constexpr auto interval = std::chrono::seconds(1);
/// GET_LOCK only stores a name, so the server answers quickly or not at all.
constexpr auto answerTimeout = std::chrono::seconds(5);
/// A service that lost only its connection is back within one or two intervals. It has the first
/// chance, or each interruption would hand the queue to the stand-by.
constexpr auto precedence = std::chrono::seconds(5);
/// After this time without statements the server closes the connection and releases the lock. It is
/// not told when a machine loses its power or its network, and would keep the lock for hours.
constexpr auto longestSilence = std::chrono::seconds(60);
/// The start waits at most this long for the first answer; until the answer comes, polls do
/// nothing.
constexpr auto firstAnswerTimeout = std::chrono::seconds(15);

} // namespace

ServiceLock::ServiceLock()
    : logger(Log4Qt::LogManager::logger(u"database"_s))
{
}

ServiceLock::~ServiceLock() = default;

void ServiceLock::start(const std::shared_ptr<SharedState> &shared)
{
    state = shared;
    if (!ConnectionFactory::usesServer()) {
        setRole(ServiceRole::Active);
        return;
    }
    state->role = ServiceRole::Undecided;
    thread = std::jthread([this](const std::stop_token &stop) { run(stop); });
    std::unique_lock lock(mutex);
    changed.wait_for(lock, firstAnswerTimeout, [this] { return role() != ServiceRole::Undecided; });
}

void ServiceLock::run(const std::stop_token &stop)
{
    while (!stop.stop_requested() && isSupported) {
        try {
            step();
        } catch (const BasicException &exception) {
            closeConnection();
            lose(exception.tr().ru());
        }
        std::unique_lock lock(mutex);
        changed.wait_for(lock, stop, interval, [] { return false; });
    }
    closeConnection();
}

void ServiceLock::step()
{
    if (!isConnected)
        openConnection();
    if (role() != ServiceRole::Active)
        tryToAcquire();
    else if (!isHeld())
        lose(u"сервер освободил её"_s);
    isOutageLogged = false;
}

void ServiceLock::openConnection()
{
    isConnected = true;
    const QSqlDatabase database = ConnectionFactory::connectToServer(connectionName, answerTimeout);
    schema = database.databaseName();
    name = serverlock::serviceLock(schema);
    QSqlQuery(database).exec(u"SET SESSION wait_timeout = %1"_s.arg(longestSilence.count()));
    freeSince.reset();
}

void ServiceLock::closeConnection()
{
    if (isConnected)
        QSqlDatabase::removeDatabase(connectionName);
    isConnected = false;
}

void ServiceLock::tryToAcquire()
{
    if (hasPrecedence) {
        take();
        return;
    }
    const auto now = Clock::now();
    if (!isFree())
        freeSince.reset();
    else if (!freeSince)
        freeSince = now;
    else if (now - *freeSince >= precedence)
        take();
}

void ServiceLock::take()
{
    QVariant answer;
    try {
        answer = ask(u"SELECT GET_LOCK('%1', 0)"_s.arg(name));
    } catch (const BasicException &exception) {
        // Separates a server that rejects only this statement from one that does not answer.
        ask(u"SELECT 1"_s);
        workWithoutLock(exception.tr().ru());
        return;
    }
    state->claimsTypes = true;
    freeSince.reset();
    if (answer.toInt() == 1) {
        if (hadLock)
            logger->info(u"Блокировка очереди '%1' возвращена, доставка продолжается"_s, schema);
        else if (role() == ServiceRole::StandBy)
            logger->info(u"Служба выходит из резерва и принимает очередь '%1'"_s, schema);
        hadLock = true;
        hasPrecedence = true;
        lockConnection = ask(u"SELECT CONNECTION_ID()"_s).toString();
        setRole(ServiceRole::Active);
        return;
    }
    const QString connection = holder();
    if (isFormerConnection(connection))
        return;
    hadLock = false;
    hasPrecedence = false;
    if (role() == ServiceRole::StandBy)
        return;
    logger->warn(u"Очередь '%1' обслуживает другая служба (%2), эта остаётся в резерве"_s.arg(
        schema, description(connection)));
    setRole(ServiceRole::StandBy);
}

bool ServiceLock::isFormerConnection(const QString &holder) const
{
    // After `longestSilence` the number may be another connection's: a restarted server counts from
    // the beginning.
    return hadLock && holder == lockConnection && Clock::now() - lostAt < longestSilence;
}

bool ServiceLock::isHeld()
{
    return ask(u"SELECT IS_USED_LOCK('%1') = CONNECTION_ID()"_s.arg(name)).toInt() == 1;
}

bool ServiceLock::isFree()
{
    return ask(u"SELECT IS_FREE_LOCK('%1')"_s.arg(name)).toInt() == 1;
}

QString ServiceLock::holder()
{
    return ask(u"SELECT IS_USED_LOCK('%1')"_s.arg(name)).toString();
}

QString ServiceLock::description(const QString &holder)
{
    // Without the PROCESS privilege the server shows no host.
    const QString host =
        holder.isEmpty()
            ? QString()
            : ask(u"SELECT host FROM information_schema.processlist WHERE id = %1"_s.arg(holder))
                  .toString();
    return u"соединение %1, %2"_s.arg(holder.isEmpty() ? u"?"_s : holder,
                                      host.isEmpty() ? u"?"_s : host);
}

QVariant ServiceLock::ask(const QString &statement)
{
    QSqlQuery query(QSqlDatabase::database(connectionName, false));
    query.setForwardOnly(true);
    if (!query.exec(statement))
        throw BasicException(databaseErrorText(query.lastError(), statement));
    return query.next() ? query.value(0) : QVariant();
}

void ServiceLock::setRole(ServiceRole role)
{
    {
        const std::scoped_lock lock(mutex);
        state->role = role;
    }
    changed.notify_all();
    Q_EMIT roleChanged();
}

void ServiceLock::lose(const QString &reason)
{
    const bool wasActive = role() == ServiceRole::Active;
    if (wasActive) {
        lostAt = Clock::now();
        setRole(ServiceRole::Undecided);
    }
    if (wasActive || !isOutageLogged) {
        isOutageLogged = true;
        logger->warn(
            u"Нет блокировки очереди '%1' на сервере базы данных (%2), новые доставки не начинаются"_s
                .arg(schema, reason));
    }
}

void ServiceLock::workWithoutLock(const QString &reason)
{
    logger->error(
        u"Сервер базы данных не знает блокировок (%1), служба работает без защиты от второй службы"_s,
        reason);
    isSupported = false;
    setRole(ServiceRole::Active);
}
