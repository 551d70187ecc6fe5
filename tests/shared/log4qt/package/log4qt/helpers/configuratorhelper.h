#pragma once

#include "log4qt/loggingevent.h"

#include <QList>
#include <QObject>

namespace Log4Qt {

/// Has the bare keywords in which Log4Qt writes this class.
class ConfiguratorHelper : public QObject
{
    Q_OBJECT

private:
    ConfiguratorHelper();
    Q_DISABLE_COPY(ConfiguratorHelper)

public:
    static QList<LoggingEvent> configureError();
    static ConfiguratorHelper *instance();
    static void setConfigureError(const QList<LoggingEvent> &errors);

signals:
    void configurationFileChanged(const QString &fileName, bool error);

private slots:
    void doConfigurationFileChanged(const QString &fileName);
};

} // namespace Log4Qt
