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

/// The bonus system could not carry an operation out.
class BonusSystemError : public BasicException
{
public:
    using BasicException::BasicException;
};

/// The bonus system refused an operation in a way that another attempt would not change.
class BonusUncriticalException : public BonusSystemError
{
public:
    using BonusSystemError::BonusSystemError;
};
