#pragma once

#include <QHash>
#include <QStringList>

class QIODevice;

namespace Log4Qt {

class Properties : public QHash<QString, QString>
{
public:
    explicit Properties(Properties *defaultProperties = nullptr);

    QString property(const QString &key) const;
    void setProperty(const QString &key, const QString &value);
    void load(QIODevice *device);
};

} // namespace Log4Qt
