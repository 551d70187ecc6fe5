#include "shared/document/document.h"

Document::~Document() = default;

QString Document::getOrderId() const
{
    return orderId;
}
