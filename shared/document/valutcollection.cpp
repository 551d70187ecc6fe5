#include "shared/document/valutcollection.h"

ValutCollection::~ValutCollection() = default;

Valut ValutCollection::getByCode(int code)
{
    return code > 0 ? Valut(code) : Valut();
}
