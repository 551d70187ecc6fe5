#pragma once

/// A currency of the till, or another means of payment, with the till's code for it.
class Valut
{
public:
    /// No currency.
    Valut() = default;
    explicit Valut(int code)
        : code(code)
    {
    }

    int getCode() const { return code; }
    bool isEmpty() const { return code == 0; }

private:
    int code = 0;
};
