#include "shared/net/headertext.h"

#include <algorithm>

bool http::isToken(const QByteArray &text)
{
    return !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](char symbol) {
        return (symbol >= 'a' && symbol <= 'z') || (symbol >= 'A' && symbol <= 'Z')
               || (symbol >= '0' && symbol <= '9')
               || QByteArrayView("!#$%&'*+-.^_`|~").contains(symbol);
    });
}

QByteArray http::oneLine(QByteArray text)
{
    return text.replace('\r', ' ').replace('\n', ' ');
}
