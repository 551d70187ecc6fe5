#include "shared/core/basicexception.h"

BasicException::BasicException(const tr::Tr &text)
    : std::runtime_error(text.ru().toStdString())
    , text(text)
{
}

BasicException::BasicException(const QString &text)
    : BasicException(tr::Tr(text))
{
}
