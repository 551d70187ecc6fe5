#include "handlers/loyalty/manzana2019handler.h"

using namespace Qt::StringLiterals;

Manzana2019Handler::Manzana2019Handler()
    : ManzanaHandler(u"manzana2019"_s)
{
}
