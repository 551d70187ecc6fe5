#include "rig/mariadbserver.h"

#include "rig/childprocess.h"

#include <QFile>
#include <QStandardPaths>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

/// A long limit, since several builds may share the machine. It matters only after a failure.
constexpr int limitMs = 60'000;

/// The server is in sbin, which is not on an ordinary user's PATH.
QString findProgram(const QString &name)
{
    QString path = QStandardPaths::findExecutable(name);
    if (path.isEmpty())
        path = QStandardPaths::findExecutable(name, {u"/usr/sbin"_s, u"/usr/local/sbin"_s});
    if (path.isEmpty())
        qFatal("The program %s is missing: install the package mariadb-server", qPrintable(name));
    return path;
}

QByteArray runProgram(const QString &name, const QStringList &arguments,
                      const QByteArray &input = QByteArray())
{
    QProcess process;
    process.start(findProgram(name), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(limitMs) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        qFatal("%s %s: %s\n%s%s", qPrintable(name), qPrintable(arguments.join(u' ')),
               qPrintable(process.errorString()), process.readAllStandardOutput().constData(),
               process.readAllStandardError().constData());
    return process.readAllStandardOutput();
}

QStringList storageOptions(Durability durability)
{
    if (durability == Durability::OfTills)
        return {};
    // A small redo log for a quick start, and no syncing.
    return {u"--innodb-log-file-size=4M"_s, u"--innodb-buffer-pool-size=16M"_s,
            u"--innodb-use-native-aio=0"_s, u"--innodb-flush-method=nosync"_s,
            u"--innodb-flush-log-at-trx-commit=2"_s};
}

/// MariaDB runs as root only if told to.
QStringList userOption()
{
    return ::geteuid() == 0 ? QStringList{u"--user=root"_s} : QStringList{};
}

} // namespace

MariaDbServer::MariaDbServer(Durability durability, const QString &parent)
    : durability(durability)
    , folder(parent + u"/mariadb-XXXXXX"_s)
{
    if (!folder.isValid())
        qFatal("No temporary folder: %s", qPrintable(folder.errorString()));

    runProgram(u"mariadb-install-db"_s,
               // A server that starts empties its folder for temporary tables, so it must not be
               // shared.
               QStringList{u"--no-defaults"_s, u"--datadir="_s + folder.filePath(u"data"_s),
                           u"--tmpdir="_s + folder.path(),
                           u"--auth-root-authentication-method=normal"_s, u"--skip-test-db"_s}
                   + userOption() + storageOptions(durability));

    server.setProcessChannelMode(QProcess::MergedChannels);
    server.setChildProcessModifier(dyingWithThisProcess());
    start();

    QFile schema(QStringLiteral(RIG_SCHEMAS "/mariadb.sql"));
    if (!schema.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(schema.fileName()), qPrintable(schema.errorString()));
    runClient(schema.readAll());
    run(u"CREATE USER '%1'@'localhost' IDENTIFIED BY '%2';"
        "GRANT SELECT, INSERT, UPDATE, DELETE ON queues.* TO '%1'@'localhost';"_s.arg(user(),
                                                                                      password()));
}

MariaDbServer::~MariaDbServer()
{
    // The files are deleted anyway, so a normal shutdown is not needed.
    if (server.state() != QProcess::NotRunning)
        kill();
}

void MariaDbServer::start()
{
    server.start(findProgram(u"mariadbd"_s),
                 QStringList{u"--no-defaults"_s, u"--datadir="_s + folder.filePath(u"data"_s),
                             u"--socket="_s + socket(),
                             u"--pid-file="_s + folder.filePath(u"server.pid"_s),
                             u"--tmpdir="_s + folder.path(), u"--skip-networking"_s,
                             u"--skip-name-resolve"_s, u"--performance-schema=OFF"_s,
                             u"--key-buffer-size=1M"_s, u"--aria-pagecache-buffer-size=1M"_s,
                             u"--log-warnings=0"_s,
                             // The strictest mode that servers in the field use.
                             u"--sql-mode=ONLY_FULL_GROUP_BY,STRICT_ALL_TABLES"_s,
                             u"--character-set-server=latin1"_s}
                     + userOption() + storageOptions(durability));

    // The server logs when its socket listens.
    QByteArray said;
    while (!said.contains("ready for connections")) {
        if (!server.waitForReadyRead(limitMs))
            qFatal("mariadbd did not start: %s\n%s", qPrintable(server.errorString()),
                   said.constData());
        said += server.readAll();
    }
    run(u"SELECT 1"_s);
}

void MariaDbServer::stop()
{
    server.terminate();
    if (!server.waitForFinished(limitMs))
        qFatal("mariadbd did not end: %s", server.readAll().constData());
}

void MariaDbServer::kill()
{
    server.kill();
    server.waitForFinished(limitMs);
}

QString MariaDbServer::socket() const
{
    return folder.filePath(u"socket"_s);
}

QString MariaDbServer::user() const
{
    return u"till"_s;
}

QString MariaDbServer::password() const
{
    return u"till-password"_s;
}

QString MariaDbServer::settings() const
{
    return u"[database]\ndriver = QMYSQL\nname = queues\nsocket = %1\nuser = %2\npassword = %3\n"_s
        .arg(socket(), user(), password());
}

QByteArray MariaDbServer::run(const QString &sql)
{
    return runClient(sql.toUtf8());
}

QByteArray MariaDbServer::runClient(const QByteArray &input)
{
    return runProgram(u"mariadb"_s,
                      {u"--no-defaults"_s, u"--socket="_s + socket(), u"--user=root"_s,
                       u"--default-character-set=utf8mb4"_s, u"--batch"_s,
                       u"--skip-column-names"_s},
                      input);
}

} // namespace rig
