#include "engine/outcome.h"

using namespace Qt::StringLiterals;

QLatin1StringView nameOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Delivered:
        return "delivered"_L1;
    case Verdict::Dropped:
        return "dropped"_L1;
    case Verdict::Kept:
        break;
    }
    return "kept"_L1;
}
