#include "shared/core/largedocuments.h"

#include <QTest>

#include <thread>

namespace {

std::atomic<int> trims = 0;

} // namespace

/// Replaces the C library's function in this process, and counts.
extern "C" int malloc_trim(size_t) noexcept
{
    ++trims;
    return 1;
}

class TestLargeDocuments : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { trims = 0; }
    void smallDocumentsReturnNothing();
    void memoryOfALargeDocumentIsReturnedOnce();
    void eachThreadHasItsOwnNote();
};

void TestLargeDocuments::smallDocumentsReturnNothing()
{
    returnLargeDocuments();
    noteLargeDocument(256 * 1024 - 1);
    returnLargeDocuments();
    QCOMPARE(trims, 0);
}

void TestLargeDocuments::memoryOfALargeDocumentIsReturnedOnce()
{
    noteLargeDocument(256 * 1024);
    noteLargeDocument(1);
    QCOMPARE(trims, 0);
    returnLargeDocuments();
    QCOMPARE(trims, 1);
    returnLargeDocuments();
    QCOMPARE(trims, 1);
}

void TestLargeDocuments::eachThreadHasItsOwnNote()
{
    noteLargeDocument(1 << 20);
    std::thread(returnLargeDocuments).join();
    QCOMPARE(trims, 0);
    returnLargeDocuments();
    QCOMPARE(trims, 1);
}

QTEST_GUILESS_MAIN(TestLargeDocuments)
#include "tst_largedocuments.moc"
