#include "tools/queuectl/doctor.h"

#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasevalues.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"
#include "tools/queuectl/certificatecheck.h"
#include "tools/queuectl/concerns.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/failids.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/logsettings.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/networkchecks.h"
#include "tools/queuectl/openfiles.h"
#include "tools/queuectl/report.h"
#include "tools/queuectl/secretfiles.h"
#include "tools/queuectl/servicelog.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QStorageInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 lowSpaceBytes = 200LL * 1024 * 1024;
constexpr qint64 largeLogBytes = 64LL * 1024 * 1024;
constexpr int toolTimeoutMs = 10'000;
constexpr int maxPort = 65535;

using State = Check::State;

class Examination
{
public:
    QList<Check> checks;

    void settings();
    void database();
    void rights();
    void openssl();
    void clock();
    void port();
    void certificates();
    void log();
    void rows();

private:
    void add(State state, const QString &area, const QString &what)
    {
        checks.append({state, area, what, {}, 0});
    }
    void schema(const QSqlDatabase &connection);
    bool collation(const QSqlDatabase &connection, const QString &table,
                   const QString &comparedColumns);
    void integrity(const QSqlDatabase &connection);
    void writeAheadLog();
    void grants(const QSqlDatabase &connection);
    QDateTime newestRow;
};

/// The values of one column of a statement's result, or nothing when it fails.
QStringList columnOf(const QSqlDatabase &connection, const QString &statement, int column)
{
    QStringList values;
    QSqlQuery query(connection);
    if (!query.exec(statement))
        return values;
    while (query.next())
        values.append(query.value(column).toString());
    return values;
}

QStringList missing(const QStringList &wanted, const QStringList &present)
{
    QStringList result;
    for (const QString &name : wanted) {
        if (!present.contains(name, Qt::CaseInsensitive))
            result.append(name);
    }
    return result;
}

void Examination::settings()
{
    const QList<SettingFault> faults = checkSettings() + checkNetworkSettings();
    bool isGood = true;
    for (const SettingFault &fault : faults) {
        const State state = fault.severity == SettingFault::Severity::Error     ? State::Error
                            : fault.severity == SettingFault::Severity::Warning ? State::Warning
                                                                                : State::Ok;
        const QString place = fault.line > 0
                                  ? u"%1:%2: "_s.arg(fault.file, QString::number(fault.line))
                                  : fault.file + u": "_s;
        checks.append({state, u"settings"_s, place + fault.text, fault.file, fault.line});
        isGood &= state == State::Ok;
    }
    if (isGood)
        add(State::Ok, u"settings"_s,
            text("files read: %1, nothing is wrong in them", "прочитано файлов: %1, замечаний нет")
                .arg(settingsFilePaths().size()));
}

void Examination::database()
{
    const QString driver =
        Singleton<Config>::instance()->getString(u"database:driver"_s, u"QSQLITE"_s);
    const QMap<QString, QString> packages{{u"QSQLITE"_s, u"libqt6sql6-sqlite"_s},
                                          {u"QMYSQL"_s, u"libqt6sql6-mysql"_s},
                                          {u"QMARIADB"_s, u"libqt6sql6-mysql"_s}};
    if (packages.contains(driver) && !QSqlDatabase::isDriverAvailable(driver)) {
        add(State::Error, u"database"_s,
            text("the settings ask for the driver %1, which is not installed (apt install %2)",
                 "настройки требуют драйвер %1, он не установлен (apt install %2)")
                .arg(driver, packages.value(driver)));
        return;
    }
    const QString place = databasePlace().value(u"place"_s).toString();
    try {
        MessageRows();
    } catch (const BasicException &exception) {
        add(State::Error, u"database"_s, exception.tr().ru());
        return;
    }
    const QSqlDatabase connection = Singleton<ConnectionFactory>::instance()->getConnection();
    add(State::Ok, u"database"_s, text("%1 answers", "%1 отвечает").arg(place));
    schema(connection);
    if (databaseFile().isEmpty()) {
        grants(connection);
    } else {
        integrity(connection);
        writeAheadLog();
    }
    QSqlQuery newest(connection);
    if (newest.exec(u"SELECT MAX(creationtime) FROM message"_s) && newest.next())
        newestRow = databaseTime(newest.value(0));
}

void Examination::schema(const QSqlDatabase &connection)
{
    const bool isFile = !databaseFile().isEmpty();
    struct Table
    {
        QString name;
        QStringList columns;
        QStringList indexes;
    };
    const Table tables[] = {
        {u"message"_s,
         {u"messageid"_s, u"type"_s, u"body"_s, u"cardnumber"_s, u"statuscode"_s,
          u"creationtime"_s},
         {u"message_type"_s, u"message_card"_s, u"message_creationtime"_s}},
        {u"documentcard"_s,
         {u"id"_s, u"chequenumber"_s, u"cardnumber"_s, u"operationid"_s, u"operationinfo"_s},
         {u"documentcard_cheque"_s}},
    };
    bool isGood = true;
    for (const Table &table : tables) {
        const QStringList columns =
            isFile ? columnOf(connection, u"PRAGMA queues.table_info(%1)"_s.arg(table.name), 1)
                   : columnOf(connection, u"SHOW COLUMNS FROM %1"_s.arg(table.name), 0);
        const QStringList indexes =
            isFile ? columnOf(connection, u"PRAGMA queues.index_list(%1)"_s.arg(table.name), 1)
                   : columnOf(connection, u"SHOW INDEX FROM %1"_s.arg(table.name), 2);
        if (columns.isEmpty()) {
            add(State::Error, u"database"_s,
                text("there is no table %1", "нет таблицы %1").arg(table.name));
            isGood = false;
            continue;
        }
        const QStringList noColumns = missing(table.columns, columns);
        if (!noColumns.isEmpty()) {
            add(State::Error, u"database"_s,
                text("table %1 lacks the columns %2", "в таблице %1 нет столбцов %2")
                    .arg(table.name, noColumns.join(u", "_s)));
            isGood = false;
        }
        const QStringList noIndexes = missing(table.indexes, indexes);
        if (!noIndexes.isEmpty()) {
            add(State::Warning, u"database"_s,
                text(
                    "table %1 lacks the indexes %2, a long queue will be slow (see the schema in packaging/sql)",
                    "в таблице %1 нет индексов %2, длинная очередь будет медленной (схема в packaging/sql)")
                    .arg(table.name, noIndexes.join(u", "_s)));
            isGood = false;
        }
    }
    if (!isFile) {
        const QStringList key = columnOf(
            connection,
            u"SHOW INDEX FROM message WHERE Key_name = 'PRIMARY' AND Seq_in_index = 1"_s, 4);
        if (!key.isEmpty() && key != QStringList{u"type"_s}) {
            add(State::Warning, u"database"_s,
                text(
                    "the key of table message does not begin with the type, waiting rows of one type slow all others (docs/operations.md, database set-up, has the statement)",
                    "ключ таблицы message не начинается с типа, ожидающие строки одного типа замедляют все остальные (команда в docs/operations.ru.md, настройка базы данных)"));
            isGood = false;
        }
    }
    if (!isFile) {
        isGood &= collation(connection, u"message"_s, u"'type', 'cardnumber'"_s);
        isGood &= collation(connection, u"documentcard"_s, u"'chequenumber', 'cardnumber'"_s);
    }
    if (isGood)
        add(State::Ok, u"database"_s,
            text("tables, columns and indexes are all there",
                 "таблицы, столбцы и индексы на месте"));
}

/// Columns that are compared whole must not ignore letter case or blanks at the end; the body, which
/// is searched for marks, must not ignore letter case.
bool Examination::collation(const QSqlDatabase &connection, const QString &table,
                            const QString &comparedColumns)
{
    // A column of bytes has no collation, and compares as it should.
    const QString condition =
        u"FROM information_schema.columns WHERE table_schema = DATABASE() AND table_name = '%1' "
        "AND collation_name IS NOT NULL AND ((column_name IN (%2) AND collation_name NOT IN "
        "('utf8mb4_nopad_bin', 'utf8mb4_0900_bin')) OR (column_name = 'body' AND "
        "collation_name NOT LIKE '%bin')) ORDER BY ordinal_position"_s.arg(table, comparedColumns);
    const QStringList columns = columnOf(connection, u"SELECT column_name "_s + condition, 0);
    if (columns.isEmpty())
        return true;
    QStringList collations = columnOf(connection, u"SELECT collation_name "_s + condition, 0);
    collations.removeDuplicates();
    const bool isMariaDb =
        columnOf(connection, u"SELECT VERSION()"_s, 0).join(QString()).contains(u"MariaDB"_s);
    const QString schemaName = columnOf(connection, u"SELECT DATABASE()"_s, 0).join(QString());
    const QString statement =
        u"ALTER TABLE %1.%2 CONVERT TO CHARACTER SET utf8mb4 COLLATE %3;"_s.arg(
            schemaName, table, isMariaDb ? u"utf8mb4_nopad_bin"_s : u"utf8mb4_0900_bin"_s);
    add(State::Warning, u"database"_s,
        text(
            "texts in %1 of table %2 compare by %3, which takes different texts for the same one (blanks at the end, perhaps letter case); an account with the right ALTER runs, while the till is idle: %4",
            "тексты в %1 таблицы %2 сравниваются по %3, разные тексты считаются одинаковыми (пробелы в конце, возможно регистр); в простое кассы под учётной записью с правом ALTER: %4")
            .arg(columns.join(u", "_s), table, collations.join(u", "_s), statement));
    return false;
}

void Examination::integrity(const QSqlDatabase &connection)
{
    const QStringList result = columnOf(connection, u"PRAGMA queues.quick_check(1)"_s, 0);
    if (result == QStringList{u"ok"_s})
        add(State::Ok, u"database"_s, text("the file is sound", "файл цел"));
    else
        add(State::Error, u"database"_s,
            text("the file is damaged: %1", "файл повреждён: %1").arg(result.join(u' ')));
}

void Examination::writeAheadLog()
{
    const QFileInfo log(databaseFile() + u"-wal"_s);
    if (log.size() <= largeLogBytes)
        return;
    add(State::Warning, u"database"_s,
        text(
            "%1 has grown to %2 MiB: a program keeps a read transaction open, and the file shrinks when that is over. Processes that have the database open: %3",
            "%1 вырос до %2 МиБ: какая-то программа держит транзакцию чтения, файл уменьшится, когда она закончится. База данных открыта процессами: %3")
            .arg(log.filePath(), QString::number(log.size() / 1024 / 1024),
                 usersOf({databaseFile(), log.filePath()}).toText()));
}

void Examination::grants(const QSqlDatabase &connection)
{
    const QString lines =
        columnOf(connection, u"SHOW GRANTS FOR CURRENT_USER"_s, 0).join(u'\n').toUpper();
    QStringList lacking;
    for (const QString &right : {u"SELECT"_s, u"INSERT"_s, u"UPDATE"_s, u"DELETE"_s}) {
        if (!lines.contains(right) && !lines.contains(u"ALL PRIVILEGES"_s))
            lacking.append(right);
    }
    if (lacking.isEmpty())
        add(State::Ok, u"rights"_s,
            text("the account on the server has the rights it needs",
                 "у учётной записи на сервере есть нужные права"));
    else
        add(State::Error, u"rights"_s,
            text("the account on the server lacks %1", "у учётной записи на сервере нет прав %1")
                .arg(lacking.join(u", "_s)));
}

void Examination::rights()
{
    const QFileInfo folder(QFileInfo(startIdsFile()).path());
    if (!folder.isDir())
        add(State::Error, u"rights"_s,
            text("there is no folder %1", "нет каталога %1").arg(folder.filePath()));
    else if (!folder.isWritable())
        add(State::Warning, u"rights"_s,
            text("this account may not write into %1", "эта учётная запись не может писать в %1")
                .arg(folder.filePath()));
    const QStorageInfo storage(folder.filePath());
    if (storage.isValid() && storage.bytesAvailable() < lowSpaceBytes)
        add(State::Error, u"rights"_s,
            text("only %1 MiB are free on the disk of %2", "свободно всего %1 МиБ на диске с %2")
                .arg(QString::number(storage.bytesAvailable() / 1024 / 1024), folder.filePath()));

    const QList<SecretFinding> secrets = checkSettingsRights();
    for (const SecretFinding &finding : secrets)
        add(finding.isOutOfReach ? State::Error : State::Warning, u"rights"_s, finding.text);

    const QString file = databaseFile();
    const QFileInfo info(file);
    if (file.isEmpty() || !info.exists())
        return;
    // The service writes the database and, beside it, the files of its write-ahead log.
    const QFileInfo home(info.path());
    if (info.owner() != home.owner() || info.owner() != folder.owner()) {
        add(State::Warning, u"rights"_s,
            text(
                "%1 belongs to %2 and its folder to %3: one of them may keep the service from writing",
                "%1 принадлежит %2, а каталог — %3: служба может не иметь права записи")
                .arg(file, info.owner(), home.owner()));
        return;
    }
    bool isGood = true;
    for (const QString &ending : {u"-wal"_s, u"-shm"_s}) {
        const QFileInfo beside(file + ending);
        if (beside.exists() && beside.owner() != info.owner()) {
            add(State::Error, u"rights"_s,
                text("%1 belongs to %2, the database to %3: the service cannot write",
                     "%1 принадлежит %2, а база данных — %3: служба не может писать")
                    .arg(beside.filePath(), beside.owner(), info.owner()));
            isGood = false;
        }
    }
    if (isGood)
        add(State::Ok, u"rights"_s,
            text("the files of the queue belong to %1", "файлы очереди принадлежат %1")
                .arg(info.owner()));
}

void Examination::openssl()
{
    if (QStandardPaths::findExecutable(u"openssl"_s).isEmpty()) {
        add(State::Error, u"openssl"_s,
            text("the tool openssl is not installed, no client certificate can be converted",
                 "программа openssl не установлена, сертификаты клиента не преобразуются"));
        return;
    }
    QProcess tool;
    tool.start(u"openssl"_s, {u"version"_s});
    if (tool.waitForFinished(toolTimeoutMs) && tool.exitStatus() == QProcess::NormalExit
        && tool.exitCode() == 0) {
        add(State::Ok, u"openssl"_s, QString::fromUtf8(tool.readAllStandardOutput()).trimmed());
        return;
    }
    tool.kill();
    tool.waitForFinished();
    add(State::Error, u"openssl"_s,
        text("the tool openssl does not run", "программа openssl не работает"));
}

void Examination::clock()
{
    const QDateTime now = QDateTime::currentDateTime();
    // A till whose battery is flat wakes up years ago, and every certificate is "not yet valid".
    if (now.date().year() < 2025) {
        add(State::Error, u"clock"_s,
            text("the clock says %1", "часы показывают %1").arg(now.toString(Qt::ISODate)));
        return;
    }
    struct Witness
    {
        QString name;
        QDateTime time;
    };
    const Witness witnesses[] = {
        {text("the newest row", "новейшая строка"), newestRow},
        {text("the fail ids", "файл отказов"), readFailIds().savedAt},
    };
    bool isGood = true;
    for (const Witness &witness : witnesses) {
        if (!witness.time.isValid() || witness.time <= now.addSecs(60))
            continue;
        add(State::Warning, u"clock"_s,
            text("%1 is from the future (%2): the clock was set back, or the time zones differ",
                 "%1 из будущего (%2): часы перевели назад или часовые пояса различаются")
                .arg(witness.name, witness.time.toString(Qt::ISODate)));
        isGood = false;
    }
    if (isGood)
        add(State::Ok, u"clock"_s, now.toString(Qt::ISODate));
}

void Examination::port()
{
    const int number = controlPort();
    if (number < 1 || number > maxPort) {
        add(State::Error, u"port"_s, text("%1 is no port", "%1 — не порт").arg(number));
        return;
    }
    const PortState state = controlPortState();
    if (state == PortState::Service) {
        add(State::Ok, u"port"_s,
            text("the service answers on 127.0.0.1:%1", "служба отвечает на 127.0.0.1:%1")
                .arg(number));
        return;
    }
    add(State::Error, u"port"_s,
        state == PortState::Other
            ? text(
                  "something else than the service listens on 127.0.0.1:%1, or the service hangs (ss -ltnp)",
                  "на 127.0.0.1:%1 отвечает не служба, или служба зависла (ss -ltnp)")
                  .arg(number)
            : text(
                  "nobody listens on 127.0.0.1:%1, the service does not run (systemctl status queue)",
                  "на 127.0.0.1:%1 никто не отвечает, служба не запущена (systemctl status queue)")
                  .arg(number));
}

void Examination::certificates()
{
    const QList<CertificateFinding> findings = checkCertificates();
    for (const CertificateFinding &finding : findings)
        add(finding.isGood    ? State::Ok
            : finding.isFatal ? State::Error
                              : State::Warning,
            u"certificates"_s, finding.text);
    if (findings.isEmpty())
        add(State::Ok, u"certificates"_s,
            text("no waiting row and no setting names a certificate",
                 "ни строки, ни настройки не называют сертификатов"));
}

void Examination::log()
{
    const ServiceLog serviceLog = ServiceLog::read();
    if (serviceLog.state() == ServiceLog::State::Denied) {
        add(State::Warning, u"log"_s,
            text("no rights: this account may not read the log or its settings %1",
                 "нет прав: эта учётная запись не может читать журнал или его настройки %1")
                .arg(serviceLog.file())
                .trimmed());
        return;
    }
    const QString settings = logSettingsFile();
    if (QFileInfo::exists(settings)) {
        const QStringList reasons = refusalsOfLogSettings(settings);
        if (!reasons.isEmpty()) {
            add(State::Error, u"log"_s,
                text("%1 is refused, the service logs to the journal: %2",
                     "%1 не принят, служба пишет в журнал systemd: %2")
                    .arg(settings, reasons.join(u"; "_s)));
            return;
        }
        const QStringList files = logFilesOutOfReach(settings);
        for (const QString &file : files)
            add(State::Error, u"log"_s,
                text("%1: the unit lets the service write below /tallocash alone, not into %2",
                     "%1: unit разрешает службе писать только в /tallocash, но не в %2")
                    .arg(settings, file));
    }
    if (!serviceLog.hasFile()) {
        add(State::Ok, u"log"_s,
            text(
                "no log file is configured, the log is in the journal (journalctl -u queue); status, why and shape tell less without a file",
                "файл журнала не настроен, журнал в systemd (journalctl -u queue); status, why и shape без файла говорят меньше"));
        return;
    }
    const QFileInfo info(serviceLog.file());
    if (!info.exists())
        add(State::Warning, u"log"_s,
            text("there is no log file %1", "файла журнала %1 нет").arg(info.filePath()));
    else if (serviceLog.lines().isEmpty() && info.size() > 0)
        add(State::Warning, u"log"_s,
            text("the lines of %1 do not follow its conversionPattern",
                 "строки %1 не соответствуют conversionPattern")
                .arg(info.filePath()));
    else
        add(State::Ok, u"log"_s, info.filePath());
}

void Examination::rows()
{
    QList<Concern> concerns;
    try {
        MessageRows table;
        concerns = concernsOf(table, Situation::read());
    } catch (const BasicException &) {
        // The database's own check has told.
        return;
    }
    for (const Concern &concern : std::as_const(concerns))
        add(State::Warning, u"rows"_s,
            shortened(concern.type, usualWidth) + u": "_s + concern.text);
    if (concerns.isEmpty())
        add(State::Ok, u"rows"_s,
            text("every type is delivered, and no row waits for more than an hour",
                 "все типы доставляются, больше часа не ждёт ни одна строка"));
}

} // namespace

QList<Check> runChecks()
{
    Examination examination;
    examination.settings();
    examination.database();
    examination.rights();
    examination.openssl();
    examination.clock();
    examination.port();
    examination.certificates();
    examination.log();
    examination.rows();
    return examination.checks;
}

} // namespace queuectl
