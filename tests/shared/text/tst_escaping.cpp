#include "shared/text/escaping.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;
using escaping::Newlines;

class TestEscaping : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void texts_data();
    void texts();
    void everyHiddenCharacter();
    void everyByteInEveryPlace();
    void differentTextsGiveDifferentResults();
    void newlines();
    void invalidBytes();
    void jsonKeepsItsMeaning();
    void longEvents_data();
    void longEvents();
    void eventOfTheLargestSize();
};

void TestEscaping::texts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");

    const auto same = [](const char *name, const QString &text) {
        QTest::newRow(name) << text << text;
    };
    same("empty", QString());
    same("Russian", u"Ошибка при отправке сообщения: «нет ответа» — №5 ё Ё"_s);
    same("other scripts", u"العربية עברית 漢字 é 👍"_s);
    same("JSON", uR"({"path":"C:\\Users\\x","text":"\"да\"\n","id":"\u041f\u0440"})"_s);
    same("control character in JSON", uR"({"name":"\u001b[2J"})"_s);
    same("path", uR"(C:\temp\x\users)"_s);
    same("number of a harmless letter", uR"(\x41 \u0041 \U00000041)"_s);
    same("capital digits", uR"(\x1B \u202E)"_s);
    same("too short for a number", uR"(\x1 \u202 \)"_s);

    // clang-format off
    QTest::newRow("escape sequence") << u"a\u001b[2Jb"_s    << uR"(a\x1b[2Jb)"_s;
    QTest::newRow("carriage return") << u"a\rb"_s           << uR"(a\x0db)"_s;
    QTest::newRow("tab")             << u"a\tb"_s           << uR"(a\x09b)"_s;
    QTest::newRow("newline")         << u"a\nb"_s           << uR"(a\x0ab)"_s;
    QTest::newRow("zero")            << u"a"_s + QChar(0)   << uR"(a\x00)"_s;
    QTest::newRow("delete")          << u"\u007f"_s         << uR"(\x7f)"_s;
    QTest::newRow("C1")              << u"\u009b2J"_s       << uR"(\x9b2J)"_s;
    QTest::newRow("override")        << u"exe.\u202etxt"_s  << uR"(exe.\u202etxt)"_s;
    QTest::newRow("isolate")         << u"\u2066a\u2069"_s  << uR"(\u2066a\u2069)"_s;
    QTest::newRow("direction mark")  << u"\u200e\u061c"_s   << uR"(\u200e\u061c)"_s;
    QTest::newRow("separators")      << u"\u2028\u2029"_s   << uR"(\u2028\u2029)"_s;
    QTest::newRow("zero width")      << u"\u200b\ufeff"_s   << uR"(\u200b\ufeff)"_s;
    QTest::newRow("tag")             << u"\U000e0041"_s     << uR"(\U000e0041)"_s;
    QTest::newRow("among Russian")   << u"да\u0007нет"_s    << uR"(да\x07нет)"_s;
    QTest::newRow("written by hand") << uR"(\x1b[2J)"_s     << uR"(\\x1b[2J)"_s;
    QTest::newRow("wide, by hand")   << uR"(\\u202e)"_s     << uR"(\\\\u202e)"_s;
    QTest::newRow("after backslash") << u"\\\u001b"_s       << uR"(\\\x1b)"_s;
    // clang-format on
}

void TestEscaping::texts()
{
    QFETCH(const QString, text);
    QFETCH(const QString, shown);
    QCOMPARE(escaping::escaped(text), shown);
    QCOMPARE(escaping::unescaped(shown), text);
}

void TestEscaping::everyHiddenCharacter()
{
    QStringList missed;
    for (char32_t code = 0; code < 0x110000; ++code) {
        const QString letter = QStringView(QChar::fromUcs4(code)).toString();
        const bool isOne = code < 0xd800 || code > 0xdfff;
        const QChar::Category category = QChar::category(code);
        const QChar::Direction direction = QChar::direction(code);
        const bool isMark =
            category == QChar::Other_Format
            && (direction == QChar::DirBN || direction == QChar::DirL || direction == QChar::DirR
                || direction == QChar::DirAL || direction >= QChar::DirLRE);
        const bool mustGo =
            category == QChar::Other_Control || category == QChar::Separator_Line
            || category == QChar::Separator_Paragraph
            // Visible characters of Arabic, Egyptian hieroglyphs, shorthand and musical notation.
            || (isMark && (code < 0x0600 || code > 0x0891 || code == 0x061c) && code != 0x110bd
                && code != 0x110cd && (code < 0x13430 || code > 0x1345f)
                && (code < 0x1bca0 || code > 0x1bca3) && (code < 0x1d173 || code > 0x1d17a));
        if (isOne && mustGo && escaping::escaped(letter) == letter)
            missed.append(QString::number(code, 16));
    }
    QCOMPARE(missed.join(u' '), QString());
}

void TestEscaping::everyByteInEveryPlace()
{
    // Several bytes of a text are looked at together.
    constexpr int length = 20;
    for (int code = 0; code < 0x80; ++code) {
        const bool isControl = code < 0x20 || code == 0x7f;
        const QString shown = isControl ? uR"(\x%1)"_s.arg(code, 2, 16, QChar(u'0')) : QChar(code);
        for (int place = 0; place < length; ++place) {
            const QString before(place, u'j');
            const QString after(length - place, u'~');
            QCOMPARE(escaping::escaped(before + QChar(code) + after), before + shown + after);
        }
    }
}

void TestEscaping::differentTextsGiveDifferentResults()
{
    // All texts of up to five of these pieces: no two give the same result.
    const QStringList pieces{u"\\"_s, u"x1b"_s, u"\u001b"_s, u"u202e"_s, u"\u202e"_s, u"a"_s};
    QStringList texts{QString()};
    QHash<QString, QString> known;
    for (int length = 0; length <= 5; ++length) {
        QStringList longer;
        for (const QString &text : std::as_const(texts)) {
            const QString shown = escaping::escaped(text);
            QVERIFY2(!known.contains(shown), qPrintable(shown));
            QCOMPARE(escaping::unescaped(shown), text);
            known.insert(shown, text);
            for (const QString &piece : pieces)
                longer.append(text + piece);
        }
        texts = longer;
    }
    QVERIFY(known.size() > 9000);
}

void TestEscaping::newlines()
{
    QCOMPARE(escaping::escaped(u"a\n\u001bb"_s, Newlines::Kept), u"a\n\\x1bb"_s);
    QCOMPARE(escaping::escaped(u"a\\\nb"_s, Newlines::Kept), u"a\\\nb"_s);
    QCOMPARE(escaping::logText(u"a\nb\r\nc"_s), u"a\n    b\\x0d\n    c"_s);
}

void TestEscaping::invalidBytes()
{
    const std::string odd = escaping::logText(std::string_view("a\x9b\xd0|\xff|\xe2\x80|\xf0\x9f"));
    QCOMPARE(QByteArray::fromStdString(odd),
             QByteArrayLiteral("a\xef\xbf\xbd\xef\xbf\xbd|\xef\xbf\xbd|\xef\xbf\xbd\xef\xbf\xbd|"
                               "\xef\xbf\xbd\xef\xbf\xbd"));
}

void TestEscaping::jsonKeepsItsMeaning()
{
    const QJsonObject object{
        {u"a"_s, u"\u001b \u007f \u009b \u202e \u2028 \ufeff \U000e0041 Ж \\u202e \\ \n 👍"_s}};
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const QByteArray json = escaping::escapedJson(QJsonDocument(object).toJson(format));
        QCOMPARE(QJsonDocument::fromJson(json).object(), object);
        const QString text = QString::fromUtf8(json);
        QVERIFY2(text.contains(
                     uR"(\u007f \u009b \u202e \u2028 \ufeff \udb40\udc41 Ж \\u202e \\ \n 👍)"_s),
                 qPrintable(text));
        QCOMPARE(escaping::escaped(text, Newlines::Kept).remove(u'\\'),
                 QString(text).remove(u'\\'));
    }
}

void TestEscaping::longEvents_data()
{
    QTest::addColumn<QString>("piece");
    QTest::newRow("ASCII") << u"a"_s;
    QTest::newRow("Russian") << u"ж"_s;
    QTest::newRow("four bytes") << u"👍"_s;
    QTest::newRow("control characters") << u"\u001b"_s;
    QTest::newRow("lines") << u"\n"_s;
    QTest::newRow("backslashes") << u"\\"_s;
    QTest::newRow("doubled backslashes") << u"\\\\\u009b"_s;
    QTest::newRow("mixed") << u"aж👍\u202e\n"_s;
}

void TestEscaping::longEvents()
{
    QFETCH(const QString, piece);
    // Shifted by one byte at a time, so that the limit falls into each place of the piece.
    for (int shift = 0; shift < 8; ++shift) {
        const QString text = QString(shift, u'.') + piece.repeated(200'000);
        const QString shown = escaping::logText(text);
        const qsizetype size = shown.toUtf8().size();
        QVERIFY2(size <= 64 * 1024 && size > 60 * 1024, qPrintable(QString::number(size)));
        QVERIFY(!shown.contains(QChar::ReplacementCharacter));

        static const QRegularExpression ending(u"… \\(пропущено байт: (\\d+)\\)$"_s);
        const QRegularExpressionMatch match = ending.match(shown);
        QVERIFY2(match.hasMatch(), qPrintable(shown.right(100)));
        const qsizetype taken = text.toUtf8().size() - match.captured(1).toLongLong();
        const QString kept = QString::fromUtf8(text.toUtf8().left(taken));
        QVERIFY(!kept.contains(QChar::ReplacementCharacter));
        if (!piece.contains(u'\\'))
            QCOMPARE(escaping::logText(kept), shown.left(match.capturedStart()));
    }
}

void TestEscaping::eventOfTheLargestSize()
{
    const QString largest(63 * 1024, u'a');
    QCOMPARE(escaping::logText(largest), largest);
    QCOMPARE(escaping::logText(largest + u'b'), largest + u"… (пропущено байт: 1)"_s);
}

QTEST_APPLESS_MAIN(TestEscaping)
#include "tst_escaping.moc"
