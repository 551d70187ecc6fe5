#pragma once

#include "shared/core/basicexception.h"

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
