#pragma once

#include <QCryptographicHash>
#include <QString>
#include <QStringList>

#include <chrono>

namespace Log4Qt {
class Logger;
}

/// How the client certificates of a service are converted. Each member's default is what most
/// services have.
struct CertificateRules
{
    /// Only names that end so are converted, in exact case; any other file is taken for PEM as it
    /// stands, without a look at it. None: every file is converted.
    QStringList convertedEndings = {};
    QCryptographicHash::Algorithm digest = QCryptographicHash::Md5;
    /// Where the PEM files lie.
    QString folder = QStringLiteral("/tmp");
    /// The PEM file's name without its ending; %1 is the digest of the source's content.
    QString fileName;
    /// The environment variable in which the tool gets the password. Empty: on its command line.
    QString passwordVariable = {};
    QStringList furtherArguments = {};
    /// The folder is made if need be, and folder and file are the service's alone; what a failed
    /// run has written is removed.
    bool isPrivate = false;
    /// After it the tool is killed, and has failed.
    std::chrono::milliseconds timeLimit{30'000};
};

/// What became of a certificate file.
struct ConvertedCertificate
{
    /// The PEM file with the certificate and the key; empty when there is none.
    QString pem = {};
    /// What lies in the place of the PEM file or its folder is not the service's alone, so the
    /// certificate in it may be somebody else's: nothing may be sent.
    bool isRefused = false;
};

/// The PEM file with the certificate and key of the PKCS#12 file at `path`, protected by the same
/// `password`. Without one there is a line in the log.
///
/// The file is made by the `openssl` tool, once for each content: its name is a digest of it, so a
/// changed certificate gets a new file. A file that is there already is not looked into, and the
/// password is not tried. Two workers with the same content wait for one conversion, and a file
/// whose writing was cut off is made again.
///
/// Folder and file are used only if they belong to the service, are not links, and nobody else may
/// write to them. Blocks for as long as the tool runs. Never throws. Thread: any.
ConvertedCertificate convertCertificate(Log4Qt::Logger &logger, const QString &path,
                                        const QString &password, const CertificateRules &rules);
