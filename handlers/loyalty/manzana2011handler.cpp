#include "handlers/loyalty/manzana2011handler.h"

using namespace Qt::StringLiterals;

Manzana2011Handler::Manzana2011Handler()
    : ManzanaHandler(u"manzana"_s)
{
}
