#include "rig/mariadbserver.h"
#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"
#include "shared/document/documentsdao.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

#include <thread>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

class TestDocumentsDao : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void operationsKeepTheirPlaces();
    void recordKnowsWhatWasSet();

    void cardIsFoundByChequeAndNumber_data() { bothDatabases(); }
    void cardIsFoundByChequeAndNumber();
    void latestCardIsFound_data() { bothDatabases(); }
    void latestCardIsFound();
    void cardIsRead_data() { bothDatabases(); }
    void cardIsRead();
    void onlySetFieldsAreChanged_data() { bothDatabases(); }
    void onlySetFieldsAreChanged();
    void readCardChangesOnlyWhatIsSetAfterwards_data() { bothDatabases(); }
    void readCardChangesOnlyWhatIsSetAfterwards();
    void operationInfoComesBack_data() { bothDatabases(); }
    void operationInfoComesBack();
    void emptyOperationInfoIsNull_data() { bothDatabases(); }
    void emptyOperationInfoIsNull();
    void idMayBeText_data() { bothDatabases(); }
    void idMayBeText();
    void unknownIdIsLogged_data() { bothDatabases(); }
    void unknownIdIsLogged();
    void unchangedValuesAreNotAMissingCard_data() { bothDatabases(); }
    void unchangedValuesAreNotAMissingCard();
    void failureIsABasicException_data() { bothDatabases(); }
    void failureIsABasicException();
    void writesWaitForTheirTurn();

private:
    static void bothDatabases();
    /// Puts a card into the table and returns its id.
    int put(const QString &cheque, const QString &card, const QString &operationId = u""_s,
            const QString &operationInfo = u""_s);
    /// The columns of a row, parted by "|".
    QString row(int id);

    std::unique_ptr<MariaDbServer> server;
    std::unique_ptr<QueueDatabase> database;
    DocumentsDao dao;
};

void TestDocumentsDao::initTestCase()
{
    server = std::make_unique<MariaDbServer>();
}

void TestDocumentsDao::init()
{
    database = std::make_unique<QueueDatabase>();
    const bool isServer = QTest::currentDataTag() == "MariaDB"_ba;
    if (isServer)
        database->setSettings(server->settings());
}

void TestDocumentsDao::cleanup()
{
    database.reset();
    server->run(u"TRUNCATE queues.documentcard"_s);
}

void TestDocumentsDao::cleanupTestCase()
{
    server.reset();
}

void TestDocumentsDao::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&DocumentsDao::findCardId), slotOf(&DocumentsDao::updateCard) + 1);
    QCOMPARE(slotOf(&DocumentsDao::readCard), slotOf(&DocumentsDao::findCardId) + 1);
}

void TestDocumentsDao::recordKnowsWhatWasSet()
{
    DocumentCardRecord card;
    QVERIFY(card.getId().isNull());
    QVERIFY(card.getNumber().isNull());
    QVERIFY(card.getOperationId().isEmpty());
    QVERIFY(card.getOperationInfo().isNull());
    QVERIFY(!card.isNumberSet() && !card.isOperationIdSet() && !card.isOperationInfoSet());

    card.setOperationInfo(QJsonObject{{u"a"_s, 1}});
    QCOMPARE(card.getOperationInfo().toMap(), (QVariantMap{{u"a"_s, 1}}));
    QVERIFY(!card.isNumberSet() && !card.isOperationIdSet() && card.isOperationInfoSet());
    card.setNumber(77);
    card.setOperationId(u"T1"_s);
    QCOMPARE(card.getNumber().toString(), u"77"_s);
    QVERIFY(card.isNumberSet() && card.isOperationIdSet());
}

void TestDocumentsDao::cardIsFoundByChequeAndNumber()
{
    const int first = put(u"100"_s, u"AbC"_s);
    const int second = put(u"100"_s, u"другая"_s);
    QCOMPARE(dao.findCardId(u"100"_s, u"AbC"_s), first);
    QCOMPARE(dao.findCardId(u"100"_s, u"другая"_s), second);
    QCOMPARE(dao.findCardId(u"100"_s, u"abc"_s), 0);
    QCOMPARE(dao.findCardId(u"101"_s, u"AbC"_s), 0);
    QCOMPARE(dao.findCardId(u"100"_s, u"AbC "_s), 0);
    QCOMPARE(dao.findCardId(u"100 "_s, u"AbC"_s), 0);
    QCOMPARE(dao.findCardId(u"100' OR '1'='1"_s, u"AbC"_s), 0);
    QCOMPARE(dao.findCardId(QString(), QString()), 0);
    const int nameless = put(u""_s, u""_s);
    QCOMPARE(dao.findCardId(QString(), QString()), nameless);
}

void TestDocumentsDao::latestCardIsFound()
{
    // Cheque numbers restart with each shift.
    put(u"1"_s, u"77"_s);
    const int latest = put(u"1"_s, u"77"_s);
    put(u"2"_s, u"77"_s);
    QCOMPARE(dao.findCardId(u"1"_s, u"77"_s), latest);
}

void TestDocumentsDao::cardIsRead()
{
    const int id =
        put(u"1"_s, u"77"_s, u"операция"_s, u"{\"ключ\":\"значение 🙂\"}"_s);
    const auto card = dao.readCard(id, true);
    QVERIFY(card);
    QCOMPARE(card->getId().toInt(), id);
    QCOMPARE(card->getNumber().toString(), u"77"_s);
    QCOMPARE(card->getOperationId(), u"операция"_s);
    QCOMPARE(card->getOperationInfo().toMap(),
             (QVariantMap{{u"ключ"_s, u"значение 🙂"_s}}));
    QVERIFY(dao.readCard(id, false)->getOperationInfo().isNull());
    QCOMPARE(dao.readCard(id, false)->getOperationId(), u"операция"_s);
    QVERIFY(!dao.readCard(id + 1, true));
}

void TestDocumentsDao::onlySetFieldsAreChanged()
{
    const int id = put(u"1"_s, u"77"_s, u"old"_s, u"{\"a\":1}"_s);
    const int other = put(u"2"_s, u"78"_s, u"old"_s, u"{\"a\":1}"_s);

    DocumentCardRecord nothing;
    nothing.setId(id);
    dao.updateCard(nothing);
    QCOMPARE(row(id), u"1|77|old|{\"a\":1}"_s);

    DocumentCardRecord operation;
    operation.setId(id);
    operation.setOperationId(u"new"_s);
    dao.updateCard(operation);
    QCOMPARE(row(id), u"1|77|new|{\"a\":1}"_s);

    DocumentCardRecord info;
    info.setId(id);
    info.setOperationInfo(QVariantMap{{u"b"_s, u"2"_s}});
    dao.updateCard(info);
    QCOMPARE(row(id), u"1|77|new|{\"b\":\"2\"}"_s);

    DocumentCardRecord all;
    all.setId(id);
    all.setNumber(u"79"_s);
    all.setOperationId(QString());
    all.setOperationInfo(QVariant());
    dao.updateCard(all);
    QCOMPARE(row(id), u"1|79||"_s);
    QCOMPARE(row(other), u"2|78|old|{\"a\":1}"_s);
}

void TestDocumentsDao::readCardChangesOnlyWhatIsSetAfterwards()
{
    const int id = put(u"1"_s, u"77"_s, u"old"_s, u"{\"a\":1}"_s);
    const auto card = dao.readCard(id, true);
    database->query(u"UPDATE documentcard SET cardnumber = '78', operationinfo = '{}'"_s);
    card->setOperationId(u"new"_s);
    dao.updateCard(*card);
    QCOMPARE(row(id), u"1|78|new|{}"_s);
}

void TestDocumentsDao::operationInfoComesBack()
{
    const int id = put(u"1"_s, u"77"_s);
    const QDateTime time(QDate(2026, 1, 31), QTime(12, 30, 15), QTimeZone::utc());
    DocumentCardRecord card;
    card.setId(id);
    card.setOperationInfo(QVariantMap{{u"TransactionDate"_s, time}, {u"sum"_s, 12.5}});
    dao.updateCard(card);

    const QVariant info = dao.readCard(id, true)->getOperationInfo();
    const QJsonObject object = QJsonDocument::fromVariant(info).object();
    QCOMPARE(QDateTime::fromString(object.value(u"TransactionDate"_s).toString(), Qt::ISODate),
             time);
    QCOMPARE(object.value(u"sum"_s).toDouble(), 12.5);
}

void TestDocumentsDao::emptyOperationInfoIsNull()
{
    QVERIFY(dao.readCard(put(u"1"_s, u"77"_s), true)->getOperationInfo().isNull());
    const int broken = put(u"1"_s, u"77"_s, u""_s, u"{\"a\":"_s);
    QVERIFY(dao.readCard(broken, true)->getOperationInfo().isNull());
    const int list = put(u"1"_s, u"77"_s, u""_s, u"[1]"_s);
    QVERIFY(dao.readCard(list, true)->getOperationInfo().isNull());
}

void TestDocumentsDao::idMayBeText()
{
    const int id = put(u"1"_s, u"77"_s);
    DocumentCardRecord card;
    card.setId(QString::number(id));
    card.setOperationId(u"new"_s);
    dao.updateCard(card);
    QCOMPARE(row(id), u"1|77|new|"_s);
}

void TestDocumentsDao::unknownIdIsLogged()
{
    const int id = put(u"1"_s, u"77"_s);
    const QVariantList unknownIds = {id + 1, u"12a"_s, u""_s, QVariant(), u"99999999999"_s};
    for (const QVariant &unknown : unknownIds) {
        LogCapture log(u"documentsdao"_s);
        DocumentCardRecord card;
        card.setId(unknown);
        card.setOperationId(u"new"_s);
        dao.updateCard(card);
        QCOMPARE(log.lines(),
                 QStringList{u"WARN Карта документа '%1' не найдена, изменения не сохранены"_s.arg(
                     unknown.toString())});
    }
    QCOMPARE(row(id), u"1|77||"_s);
}

void TestDocumentsDao::unchangedValuesAreNotAMissingCard()
{
    LogCapture log(u"documentsdao"_s);
    DocumentCardRecord card;
    card.setId(put(u"1"_s, u"77"_s, u"same"_s));
    card.setOperationId(u"same"_s);
    dao.updateCard(card);
    QCOMPARE(log.lines(), QStringList());
}

void TestDocumentsDao::failureIsABasicException()
{
    const bool isServer = QTest::currentDataTag() == "MariaDB"_ba;
    put(u"1"_s, u"77"_s);
    if (isServer)
        server->run(u"RENAME TABLE queues.documentcard TO queues.away"_s);
    else
        database->query(u"DROP TABLE documentcard"_s);

    const auto failure = [](const std::function<void()> &action) {
        try {
            action();
            return QString();
        } catch (const BasicException &exception) {
            return exception.tr().ru();
        }
    };
    DocumentCardRecord card;
    card.setId(1);
    card.setOperationId(u"new"_s);
    const QStringList texts = {failure([&] { dao.updateCard(card); }),
                               failure([&] { dao.findCardId(u"1"_s, u"77"_s); }),
                               failure([&] { dao.readCard(1, true); })};
    if (isServer)
        server->run(u"RENAME TABLE queues.away TO queues.documentcard"_s);
    const QStringList openings = {u"Не удалось сохранить карту документа '1': "_s,
                                  u"Не удалось найти карту '77' документа '1': "_s,
                                  u"Не удалось прочитать карту документа '1': "_s};
    for (int i = 0; i < texts.size(); ++i)
        QVERIFY2(texts[i].startsWith(openings[i]) && texts[i].contains(u"documentcard"_s),
                 qPrintable(texts[i]));
}

/// Reading does not.
void TestDocumentsDao::writesWaitForTheirTurn()
{
    const int id = put(u"1"_s, u"77"_s, u"old"_s);
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    WriteGate *gate = factory->gateOf(factory->getConnection());
    QVERIFY(gate);
    std::thread writer;
    {
        const WriteGate::Turn held = WriteGate::enter(gate);
        writer = std::thread([id] {
            DocumentCardRecord card;
            card.setId(id);
            card.setOperationId(u"new"_s);
            DocumentsDao().updateCard(card);
            ConnectionFactory *own = Singleton<ConnectionFactory>::instance();
            const QString name = own->getConnection().connectionName();
            own->removeConnection(name);
        });
        while (gate->waiting() == 0)
            std::this_thread::yield();
        QCOMPARE(dao.readCard(id, false)->getOperationId(), u"old"_s);
    }
    writer.join();
    QCOMPARE(dao.readCard(id, false)->getOperationId(), u"new"_s);
}

void TestDocumentsDao::bothDatabases()
{
    QTest::addColumn<bool>("isServer");
    QTest::newRow("SQLite") << false;
    QTest::newRow("MariaDB") << true;
}

int TestDocumentsDao::put(const QString &cheque, const QString &card, const QString &operationId,
                          const QString &operationInfo)
{
    database->query(
        u"INSERT INTO documentcard (chequenumber, cardnumber, operationid, operationinfo) "
        "VALUES (?, ?, ?, ?)"_s,
        {cheque, card, operationId, operationInfo});
    return database->query(u"SELECT MAX(id) FROM documentcard"_s).value(0).value(0).toInt();
}

QString TestDocumentsDao::row(int id)
{
    const QVariantList values =
        database
            ->query(u"SELECT chequenumber, cardnumber, operationid, operationinfo "
                    "FROM documentcard WHERE id = ?"_s,
                    {id})
            .value(0);
    QStringList texts;
    for (const QVariant &value : values)
        texts.append(value.toString());
    return texts.join(u'|');
}

QTEST_GUILESS_MAIN(TestDocumentsDao)
#include "tst_documentsdao.moc"
