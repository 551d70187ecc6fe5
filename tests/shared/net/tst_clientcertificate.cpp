#include "rig/certificates.h"
#include "shared/net/clientcertificate.h"

#include <QFile>
#include <QTest>

#include <openssl/err.h>

using namespace Qt::StringLiterals;

class TestClientCertificate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void formats_data();
    void formats();
    void ends_data();
    void ends();

private:
    rig::Certificates certificates;
    rig::Certificates::Identity authority;
    /// Its certificate ended on the first of January 2021.
    rig::Certificates::Identity till;
};

void TestClientCertificate::initTestCase()
{
    authority = certificates.authority(u"Test CA"_s);
    till = certificates.expiredServer(authority, {u"DNS:till"_s});
}

void TestClientCertificate::formats_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isPkcs12");
    QTest::newRow("p12") << u"/a/till.p12"_s << true;
    QTest::newRow("pfx in capitals") << u"/a/till.PFX"_s << true;
    QTest::newRow("pem") << u"/a/till.pem"_s << false;
    QTest::newRow("in the middle") << u"/a/till.p12.pem"_s << false;
    QTest::newRow("no ending") << u"/a/p12"_s << false;
}

void TestClientCertificate::formats()
{
    QFETCH(QString, path);
    QTEST(http::isPkcs12(path), "isPkcs12");
}

void TestClientCertificate::ends_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("isRead");
    const QString secret = u"пароль"_s;
    const QString sealed = certificates.pkcs12(till, secret);
    const QString keyFirst = certificates.chain({till.key, till.certificate});
    const QString withAuthority = certificates.chain({till.certificate, authority.certificate});
    const QString cut = certificates.file("-----BEGIN CERTIFICATE-----\nMIIB\n");
    const QString encrypted =
        certificates.file("-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
                          "DEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n"
                          "AAAAAAAAAAAAAAAAAAAAAA==\n-----END CERTIFICATE-----\n");
    const QString badPkcs12 = certificates.pkcs12(till, secret);
    QFile file(badPkcs12);
    QVERIFY(file.resize(file.size() / 2));
    // clang-format off
    QTest::newRow("PEM")                     << till.certificate                     << QString() << true;
    QTest::newRow("PEM with its key")        << certificates.joined(till)            << QString() << true;
    QTest::newRow("PEM, key first")          << keyFirst                             << QString() << true;
    QTest::newRow("PEM with the authority")  << withAuthority                        << QString() << true;
    QTest::newRow("PKCS#12")                 << sealed                               << secret    << true;
    QTest::newRow("PKCS#12, no password")    << certificates.pkcs12(till, {})        << QString() << true;
    QTest::newRow("PKCS#12, pfx")            << certificates.pkcs12(till, secret, u"PFX"_s) << secret << true;
    QTest::newRow("PKCS#12: wrong password") << sealed                               << u"no"_s   << false;
    QTest::newRow("PKCS#12 cut off")         << badPkcs12                            << secret    << false;
    QTest::newRow("PEM cut off")             << cut                                  << QString() << false;
    QTest::newRow("PEM encrypted")           << encrypted                            << QString() << false;
    QTest::newRow("a key only")              << till.key                             << QString() << false;
    QTest::newRow("an empty file")           << certificates.file({})                << QString() << false;
    QTest::newRow("no file")                 << u"/nowhere/till.pem"_s               << QString() << false;
    QTest::newRow("a folder")                << u"/tmp"_s                            << QString() << false;
    // clang-format on
}

void TestClientCertificate::ends()
{
    QFETCH(QString, path);
    QFETCH(QString, password);
    QFETCH(bool, isRead);
    const QDateTime end = http::certificateEnd(path, password);
    QCOMPARE(end, isRead ? QDateTime(QDate(2021, 1, 1), QTime(0, 0), Qt::UTC) : QDateTime());
    // A later exchange must not find it.
    QCOMPARE(ERR_peek_error(), 0UL);
}

QTEST_GUILESS_MAIN(TestClientCertificate)
#include "tst_clientcertificate.moc"
