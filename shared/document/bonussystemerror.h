#pragma once

#include "shared/core/basicexception.h"

/// The bonus system could not carry out an operation.
class BonusSystemError : public BasicException
{
public:
    using BasicException::BasicException;
};

/// The bonus system refused an operation, and would refuse it again.
class BonusUncriticalException : public BonusSystemError
{
public:
    using BonusSystemError::BonusSystemError;
};
