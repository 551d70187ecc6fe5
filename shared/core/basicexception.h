#pragma once

#include "shared/core/tr.h"

#include <stdexcept>

/// The base of what the shared classes throw. what() is the Russian text in UTF-8.
class BasicException : public std::runtime_error
{
public:
    explicit BasicException(const tr::Tr &text);
    explicit BasicException(const QString &text);

    const tr::Tr &tr() const { return text; }

private:
    tr::Tr text;
};
