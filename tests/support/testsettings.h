#pragma once

#include "shared/core/config.h"

#include <QFile>
#include <QTemporaryDir>

/// The settings of the process for the object's life: those of one file in a temporary folder.
class TestSettings
{
public:
    explicit TestSettings(const QString &text = QString()) { set(text); }
    ~TestSettings()
    {
        set(QString());
        Config::setConfigsPathList({}, {});
    }
    TestSettings(const TestSettings &) = delete;

    /// Replaces the settings; they apply at once.
    void set(const QString &text)
    {
        QFile file(folder.filePath(QStringLiteral("test.ini")));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
        file.write(text.toUtf8());
        file.close();
        Config::setConfigsPathList({QDir(folder.path())}, {});
    }

private:
    QTemporaryDir folder;
};
