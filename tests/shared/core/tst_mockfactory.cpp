#include "shared/core/mockfactory.h"

#include <QTest>

class TestMockFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshObjectAtEachCreate();
    void installedMock();
    void mocksOfOtherClassesDoNotMatter();
};

namespace {

template <int Kind>
struct Client
{
    virtual ~Client() = default;
    virtual int answer() const { return 1; }
};

struct MockClient : Client<0>
{
    int answer() const override { return 2; }
};

} // namespace

void TestMockFactory::freshObjectAtEachCreate()
{
    const auto first = MockFactory<Client<0>>::create();
    const auto second = MockFactory<Client<0>>::create();
    QVERIFY(first);
    QVERIFY(first != second);
    QCOMPARE(first->answer(), 1);
    QCOMPARE(first.use_count(), 1);
}

void TestMockFactory::installedMock()
{
    const auto mock = std::make_shared<MockClient>();
    MockFactory<Client<0>>::install(mock);
    QCOMPARE(MockFactory<Client<0>>::create(), mock);
    QCOMPARE(MockFactory<Client<0>>::create()->answer(), 2);
    MockFactory<Client<0>>::install(nullptr);
    QVERIFY(MockFactory<Client<0>>::create() != mock);
    QCOMPARE(MockFactory<Client<0>>::create()->answer(), 1);
    QCOMPARE(mock.use_count(), 1);
}

void TestMockFactory::mocksOfOtherClassesDoNotMatter()
{
    MockFactory<Client<0>>::install(std::make_shared<MockClient>());
    QCOMPARE(MockFactory<Client<1>>::create()->answer(), 1);
    MockFactory<Client<0>>::install(nullptr);
}

QTEST_GUILESS_MAIN(TestMockFactory)
#include "tst_mockfactory.moc"
