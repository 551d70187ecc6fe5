#pragma once

#include <QString>
#include <QVariantMap>

/// Same text as QJsonDocument::Compact for `object`. Every message is logged in this form, and
/// QJsonDocument would double the processor time of a worker.
/// Thread: any.
QString compactJson(const QVariantMap &object);
