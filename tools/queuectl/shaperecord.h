#pragma once

#include "tools/queuectl/shape.h"

#include <QJsonObject>

namespace queuectl {

/// How the destination is, such as "down since 14:05", for the operator.
QString stateText(const ShapeDestination &destination);
/// The destination in a line, for the operator.
QString destinationText(const ShapeDestination &destination);
/// The shape in the JSON form.
QJsonObject shapeRecord(const Shape &shape);

} // namespace queuectl
