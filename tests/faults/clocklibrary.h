#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

namespace faults {

/// The library that gives a process another time of day than the machine's; empty when it is not
/// installed.
inline QString clockLibrary()
{
    using namespace Qt::StringLiterals;
    const QStringList folders =
        QDir(u"/usr/lib"_s).entryList({u"*-linux-gnu*"_s}, QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &folder : folders) {
        const QString path = u"/usr/lib/%1/faketime/libfaketimeMT.so.1"_s.arg(folder);
        if (QFile::exists(path))
            return path;
    }
    return {};
}

/// A sanitizer and that library do not work in one process.
constexpr bool isSanitized()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

} // namespace faults
