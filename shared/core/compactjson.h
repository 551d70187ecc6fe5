#pragma once

#include <QString>
#include <QVariantMap>

/// The text that QJsonDocument gives for `object` without blanks. Every message is logged in this
/// form, and the way through QJsonDocument would cost as much as the rest of the worker's own work.
/// Thread: any.
QString compactJson(const QVariantMap &object);
