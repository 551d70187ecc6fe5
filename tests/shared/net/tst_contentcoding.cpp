#include "shared/net/contentcoding.h"

#include <QTest>

#include <zlib.h>

using Outcome = http::Unpacking;
Q_DECLARE_METATYPE(Outcome)

namespace {

constexpr qsizetype limit = 100'000;

// What zlib calls the wrapping.
constexpr int gzipWrapping = 16 + MAX_WBITS;
constexpr int zlibWrapping = MAX_WBITS;
constexpr int noWrapping = -MAX_WBITS;

QByteArray packed(const QByteArray &bytes, int wrapping, int level = Z_BEST_COMPRESSION)
{
    constexpr int usualMemory = 8;
    z_stream stream = {};
    if (deflateInit2(&stream, level, Z_DEFLATED, wrapping, usualMemory, Z_DEFAULT_STRATEGY) != Z_OK)
        qFatal("zlib");
    QByteArray result(
        static_cast<qsizetype>(deflateBound(&stream, static_cast<uLong>(bytes.size()))) + 64,
        Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef *>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END)
        qFatal("zlib");
    result.truncate(static_cast<qsizetype>(stream.total_out));
    deflateEnd(&stream);
    return result;
}

QByteArray gzip(const QByteArray &bytes)
{
    return packed(bytes, gzipWrapping);
}

QByteArray withByte(QByteArray bytes, qsizetype place, char byte)
{
    bytes[place < 0 ? bytes.size() + place : place] = byte;
    return bytes;
}

Outcome outcomeOf(QByteArray body, const QByteArray &codings)
{
    return http::unpack(body, codings, limit);
}

} // namespace

class TestContentCoding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unpacks_data();
    void unpacks();
    void everyEarlyEnd_data();
    void everyEarlyEnd();
    void textsThatAreNotPacked();
    void limitOfEachCoding_data();
    void limitOfEachCoding();
    void largeBodies();
};

void TestContentCoding::unpacks_data()
{
    QTest::addColumn<QByteArray>("codings");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Outcome>("outcome");

    const QByteArray text = "{\"text\":\"Чек\"}";
    const QByteArray zipped = gzip(text);
    const QByteArray zlib = packed(text, zlibWrapping);
    const QByteArray bare = packed(text, noWrapping);
    const QByteArray stored = packed(text, noWrapping, Z_NO_COMPRESSION);
    // Flags: a checksum of the head, a further field, a name and a comment.
    const QByteArray fields = QByteArray::fromHex("1f8b081c0000000000ff")
                              + QByteArray("\3\0abcname\0comment\0", 18) + zipped.mid(10);
    const QByteArray halves = gzip(text.first(5)) + gzip(text.mid(5));
    constexpr auto whole = Outcome::Done;
    constexpr auto unknown = Outcome::Unknown;
    constexpr auto cutOff = Outcome::CutOff;
    const auto row = [](const char *name, const char *codings, const QByteArray &bytes,
                        Outcome outcome) {
        QTest::newRow(name) << QByteArray(codings) << bytes << outcome;
    };
    // clang-format off
    row("gzip",                          "gzip",              zipped,                           whole);
    row("the old name, upper case",      "X-GZip",            zipped,                           whole);
    row("name, comment and the like",    "gzip",              fields,                           whole);
    row("two members",                   "gzip",              halves,                           whole);
    row("an empty member among them",    "gzip",              gzip("") + halves,                whole);
    row("zeros at the end",              "gzip",              zipped + QByteArray(512, '\0'),   whole);
    row("garbage at the end",            "gzip",              zipped + "garbage",               whole);
    row("a byte of garbage",             "gzip",              zipped + '\x1f',                  whole);
    row("deflate",                       "deflate",           zlib,                             whole);
    row("garbage after deflate",         "deflate",           zlib + "garbage",                 whole);
    row("deflate without wrapping",      "deflate",           bare,                             whole);
    row("deflate without compression",   "deflate",           stored,                           whole);
    row("nothing",                       "",                  text,                             whole);
    row("identity",                      "identity",          text,                             whole);
    row("identity and blanks",           " identity ,, gzip ", zipped,                          whole);
    row("gzip twice",                    "gzip, gzip",        gzip(zipped),                     whole);
    row("first deflate, then gzip",      "deflate,gzip",      gzip(zlib),                       whole);
    row("first gzip, then deflate",      "gzip,deflate",      packed(zipped, zlibWrapping),     whole);
    row("five times",                    "gzip,gzip,gzip,gzip,gzip", gzip(gzip(gzip(gzip(zipped)))), whole);

    row("an unknown coding",         "zebra",             text,                             unknown);
    row("the name of an alphabet",       "UTF-8",             text,                             unknown);
    row("brotli",                        "br",                text,                             unknown);
    row("one of two",                    "br, gzip",          zipped,                           unknown);
    row("six times",                     "gzip,gzip,gzip,gzip,gzip,gzip", zipped,               unknown);
    row("a name with something after it",  "gzip;q=1",          zipped,                           unknown);
    row("no gzip",                       "gzip",              text,                             unknown);
    row("half a sign of gzip",           "gzip",              "\x1f not gzip",                  unknown);
    row("one byte of no gzip",           "gzip",              "x",                              unknown);
    row("zlib under the name of gzip",   "gzip",              zlib,                             unknown);
    row("gzip under the name of deflate", "deflate",          zipped,                           unknown);
    row("no deflate",                    "deflate",           text,                             unknown);
    row("packed once, not twice",        "gzip, gzip",        zipped,                           unknown);
    row("garbage after bare deflate",   "deflate",           bare + "garbage",                 unknown);
    row("a wrong checksum",              "gzip",              withByte(zipped, -8, '\x77'),     unknown);
    row("a wrong length",                "gzip",              withByte(zipped, -4, '\x77'),     unknown);
    row("a wrong checksum of zlib",      "deflate",           withByte(zlib, -1, '\x77'),       unknown);
    row("broken within",                 "gzip",              zipped.first(10) + "no gzip at all", unknown);
    row("a broken second member",        "gzip",              zipped + zipped.first(10) + "no gzip at all", unknown);
    row("another method than deflate",   "deflate",           "\x79\x9c and no bare stream",    unknown);
    row("a window that is too large",    "deflate",           QByteArray::fromHex("881c") + text, unknown);
    row("a wrong check digit",           "deflate",           QByteArray::fromHex("789d") + text, unknown);
    row("a dictionary nobody has",       "deflate",           QByteArray::fromHex("78bb00000001") + bare, unknown);

    row("an end within the packed",      "gzip, gzip",        gzip(zipped.chopped(9)),          cutOff);
    row("an end within the packing",     "gzip, gzip",        gzip(zipped).chopped(9),          cutOff);
    row("an end ahead of bare deflate",  "deflate, gzip",     gzip(bare).chopped(9),            cutOff);
    row("an end within another member",  "gzip",              zipped + zipped.first(12),        cutOff);
    // clang-format on
}

void TestContentCoding::unpacks()
{
    QFETCH(QByteArray, codings);
    QFETCH(QByteArray, bytes);
    QFETCH(Outcome, outcome);
    QByteArray body = bytes;
    QCOMPARE(http::unpack(body, codings, limit), outcome);
    QCOMPARE(body, outcome == Outcome::Done ? "{\"text\":\"Чек\"}" : bytes);
}

void TestContentCoding::everyEarlyEnd_data()
{
    QTest::addColumn<QByteArray>("codings");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Outcome>("outcome");
    const QByteArray text = QByteArray("Чек ").repeated(20);
    QTest::newRow("gzip") << QByteArray("gzip") << gzip(text) << Outcome::CutOff;
    QTest::newRow("deflate") << QByteArray("deflate") << packed(text, zlibWrapping)
                             << Outcome::CutOff;
    // It has no signature that distinguishes it from a text that is not compressed.
    QTest::newRow("bare deflate") << QByteArray("deflate") << packed(text, noWrapping)
                                  << Outcome::Unknown;
}

void TestContentCoding::everyEarlyEnd()
{
    QFETCH(QByteArray, codings);
    QFETCH(QByteArray, bytes);
    QFETCH(Outcome, outcome);
    // A single byte does not identify deflate.
    const qsizetype shortest = codings == "gzip" ? 1 : 2;
    for (qsizetype size = shortest; size < bytes.size(); ++size)
        QCOMPARE(outcomeOf(bytes.first(size), codings), outcome);
    QCOMPARE(outcomeOf(bytes, codings), Outcome::Done);
    QCOMPARE(outcomeOf({}, codings), Outcome::Done);
}

/// Some servers announce compression and send plain text. Such an answer must remain an answer.
void TestContentCoding::textsThatAreNotPacked()
{
    const QByteArray texts[] = {"{}",
                                "[]",
                                "ok",
                                "OK\n",
                                "0",
                                "true",
                                "x",
                                "80",
                                "8012",
                                "Hj",
                                "<a/>",
                                "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Status>0</Status>",
                                "{\"result\": 0, \"message\": \"\"}",
                                "{\"email\": \"a@b\", \"c\": [1, 2, 3]}",
                                "code=0&text=принято"};
    for (const QByteArray &text : texts) {
        for (const QByteArray codings : {"gzip", "deflate", "gzip, deflate", "deflate, gzip"})
            QVERIFY2(outcomeOf(text, codings) == Outcome::Unknown, codings + ": " + text);
    }
}

void TestContentCoding::limitOfEachCoding_data()
{
    QTest::addColumn<QByteArray>("codings");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qsizetype>("size");
    const QByteArray most(limit, 'x');
    const QByteArray more = most + 'x';
    constexpr qsizetype tooLarge = -1;
    // clang-format off
    QTest::newRow("as much as allowed")    << QByteArray("gzip")          << gzip(most)                    << limit;
    QTest::newRow("a byte more")           << QByteArray("gzip")          << gzip(more)                    << tooLarge;
    QTest::newRow("in two members")        << QByteArray("gzip")          << gzip(most) + gzip("x")        << tooLarge;
    QTest::newRow("deflate")               << QByteArray("deflate")       << packed(most, zlibWrapping)    << limit;
    QTest::newRow("deflate, a byte more")  << QByteArray("deflate")       << packed(more, zlibWrapping)    << tooLarge;
    QTest::newRow("twice")                 << QByteArray("gzip, gzip")    << gzip(gzip(most))              << limit;
    QTest::newRow("twice, a byte more")    << QByteArray("gzip, gzip")    << gzip(gzip(more))              << tooLarge;
    // What is between the two is larger than either end.
    QTest::newRow("large in between")      << QByteArray("deflate, gzip") << gzip(packed("x", zlibWrapping) + more) << tooLarge;
    // clang-format on
}

void TestContentCoding::limitOfEachCoding()
{
    QFETCH(QByteArray, codings);
    QFETCH(QByteArray, bytes);
    QFETCH(qsizetype, size);
    QByteArray body = bytes;
    QCOMPARE(http::unpack(body, codings, limit), size < 0 ? Outcome::TooLarge : Outcome::Done);
    QCOMPARE(body.size(), size < 0 ? bytes.size() : size);
}

/// These are processed in parts to save memory.
void TestContentCoding::largeBodies()
{
    constexpr qsizetype large = 5'000'000;
    QByteArray text(large, Qt::Uninitialized);
    for (qsizetype i = 0; i < large; ++i)
        text[i] = static_cast<char>(i * 31 + i / 251);
    const QByteArray stored = packed(text, gzipWrapping, Z_NO_COMPRESSION);
    QByteArray body = packed(stored, zlibWrapping, Z_NO_COMPRESSION);
    QVERIFY(body.size() > large);
    QCOMPARE(http::unpack(body, "gzip, deflate", 2 * large), Outcome::Done);
    QVERIFY(body == text);
    const QByteArray broken = withByte(stored, -1, '\x77');
    body = broken;
    QCOMPARE(http::unpack(body, "gzip", 2 * large), Outcome::Unknown);
    QVERIFY(body == broken);
}

QTEST_GUILESS_MAIN(TestContentCoding)
#include "tst_contentcoding.moc"
