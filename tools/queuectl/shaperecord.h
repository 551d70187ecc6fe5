#pragma once

#include "tools/queuectl/shape.h"

#include <QJsonObject>

namespace queuectl {

/// The destination in a line, for the operator.
QString destinationText(const ShapeDestination &destination);
/// The shape in the JSON form.
QJsonObject shapeRecord(const Shape &shape);

} // namespace queuectl
