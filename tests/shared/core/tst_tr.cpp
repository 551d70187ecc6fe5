#include "shared/core/tr.h"

#include <QCoreApplication>
#include <QTest>
#include <QTranslator>

using namespace Qt::StringLiterals;

class TestTr : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bothFormsOfAPlainText();
    void russianWithoutATranslation();
    void onlyTheScreenIsTranslated();
    void emptiness();
    void equality();
    void isAValueWithAMetaObject();
};

namespace {

class Translation : public QTranslator
{
public:
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        return QByteArray(context) == "tr" && QByteArray(source) == "noConnection"
                   ? u"No connection"_s
                   : QString();
    }
    bool isEmpty() const override { return false; }
};

} // namespace

void TestTr::bothFormsOfAPlainText()
{
    const tr::Tr text(u"Ошибка"_s);
    QCOMPARE(text.ru(), u"Ошибка"_s);
    QCOMPARE(text.ui(), u"Ошибка"_s);
}

void TestTr::russianWithoutATranslation()
{
    const tr::Tr text(u"noConnection"_s, u"Нет связи"_s);
    QCOMPARE(text.ru(), u"Нет связи"_s);
    QCOMPARE(text.ui(), u"Нет связи"_s);
}

void TestTr::onlyTheScreenIsTranslated()
{
    Translation translation;
    QCoreApplication::installTranslator(&translation);
    const tr::Tr text(u"noConnection"_s, u"Нет связи"_s);
    QCOMPARE(text.ru(), u"Нет связи"_s);
    QCOMPARE(text.ui(), u"No connection"_s);
    QCOMPARE(tr::Tr(u"other"_s, u"Другое"_s).ui(), u"Другое"_s);
    QCOMPARE(tr::Tr(u"noConnection"_s).ui(), u"noConnection"_s);
    QCoreApplication::removeTranslator(&translation);
}

void TestTr::emptiness()
{
    QVERIFY(tr::Tr().isEmpty());
    QVERIFY(tr::Tr(QString()).isEmpty());
    QVERIFY(!tr::Tr(u"а"_s).isEmpty());
    QVERIFY(!tr::Tr(u"key"_s, u"а"_s).isEmpty());
    QCOMPARE(tr::Tr().ru(), QString());
    QCOMPARE(tr::Tr().ui(), QString());
}

void TestTr::isAValueWithAMetaObject()
{
    tr::Tr text(u"key"_s, u"а"_s);
    const tr::Tr copy = text;
    text = tr::Tr(u"б"_s);
    QCOMPARE(copy, tr::Tr(u"key"_s, u"а"_s));
    QVERIFY(text != copy);
    const int property = tr::Tr::staticMetaObject.indexOfProperty("ru");
    QCOMPARE(tr::Tr::staticMetaObject.property(property).readOnGadget(&text).toString(), u"б"_s);
}

void TestTr::equality()
{
    QVERIFY(tr::Tr(u"key"_s, u"Текст"_s) == tr::Tr(u"key"_s, u"Текст"_s));
    QVERIFY(tr::Tr(u"key"_s, u"Текст"_s) != tr::Tr(u"key"_s, u"Другой"_s));
    QVERIFY(tr::Tr(u"key"_s, u"Текст"_s) != tr::Tr(u"other"_s, u"Текст"_s));
}

QTEST_GUILESS_MAIN(TestTr)
#include "tst_tr.moc"
