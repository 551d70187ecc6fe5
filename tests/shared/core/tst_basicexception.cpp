#include "shared/core/basicexception.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestBasicException : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void carriesItsText();
    void isCaughtByItsBase();
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

void TestBasicException::isCaughtByItsBase()
{
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, throw BasicException(u"а"_s));
}

QTEST_GUILESS_MAIN(TestBasicException)
#include "tst_basicexception.moc"
