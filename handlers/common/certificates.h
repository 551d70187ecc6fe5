#pragma once

#include <QCryptographicHash>
#include <QString>
#include <QStringList>

#include <chrono>

namespace Log4Qt {
class Logger;
}

/// How the client certificates of a service are converted. The defaults suit most services.
struct CertificateRules
{
    /// Only files with one of these suffixes (case-sensitive) are converted; any other file is used
    /// as PEM, unread. Empty: every file is converted.
    QStringList convertedEndings = {};
    QCryptographicHash::Algorithm digest = QCryptographicHash::Md5;
    /// The folder of the PEM files.
    QString folder = QStringLiteral("/tmp");
    /// The PEM file's name without its suffix; %1 is replaced by the digest of the source's
    /// content.
    QString fileName;
    /// The environment variable that passes the password to the tool. Empty: the command line
    /// passes it.
    QString passwordVariable = {};
    QStringList furtherArguments = {};
    /// The folder is created if necessary, folder and file are accessible only to the service, and
    /// the output of a failed run is removed.
    bool isPrivate = false;
    /// After this time the tool is killed, which counts as a failure.
    std::chrono::milliseconds timeLimit{30'000};
};

/// The result of a conversion.
struct ConvertedCertificate
{
    /// The PEM file with certificate and key; empty on failure.
    QString pem = {};
    /// The PEM file or its folder is not exclusively the service's, so another account may have
    /// written the certificate: nothing may be sent.
    bool isRefused = false;
};

/// Converts the PKCS#12 file at `path` to a PEM file with its certificate and key, protected by the
/// same `password`. A failure is logged.
///
/// The `openssl` tool makes the file, once for each content: the file's name is a digest of the
/// content, so a changed certificate gets a new file. An existing file is used unread, without a
/// check of the password. Two workers with the same content wait for one conversion. A file that
/// was written incompletely is made again.
///
/// Folder and file are used only if they belong to the service, are not links, and are not writable
/// for others. Blocks while the tool runs. Never throws. Thread: any.
ConvertedCertificate convertCertificate(Log4Qt::Logger &logger, const QString &path,
                                        const QString &password, const CertificateRules &rules);
