#include "shared/core/basicexception.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestBasicException : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void carriesItsText();
    void familyIsCaughtByTheBase();
};

void TestBasicException::carriesItsText()
{
    const BasicException plain(u"Нет связи"_s);
    QCOMPARE(plain.tr(), tr::Tr(u"Нет связи"_s));
    QCOMPARE(plain.what(), "Нет связи");
    const tr::Tr text(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s);
    const BasicException translated(text);
    QCOMPARE(translated.tr(), text);
    QCOMPARE(translated.what(), "Ошибка связи с сервером");
    const BasicException copy = translated;
    QCOMPARE(copy.tr(), text);
}

void TestBasicException::familyIsCaughtByTheBase()
{
    QVERIFY_THROWS_EXCEPTION(BonusSystemError, throw BonusUncriticalException(u"а"_s));
    QVERIFY_THROWS_EXCEPTION(BasicException, throw BonusUncriticalException(u"а"_s));
    QVERIFY_THROWS_EXCEPTION(BasicException, throw BonusSystemError(u"а"_s));
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, throw BasicException(u"а"_s));
    try {
        throw BonusUncriticalException(u"Карта заблокирована"_s);
    } catch (const BasicException &error) {
        QCOMPARE(error.tr().ru(), u"Карта заблокирована"_s);
        QVERIFY(dynamic_cast<const BonusSystemError *>(&error));
    }
}

QTEST_GUILESS_MAIN(TestBasicException)
#include "tst_basicexception.moc"
