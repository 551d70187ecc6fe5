#include "engine/cardmask.h"

#include <QStringView>

#include <algorithm>
#include <array>
#include <span>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype visibleDigits = 4;
constexpr qsizetype fewestDigits = 13;
constexpr qsizetype mostDigits = 19;

bool isDigit(QChar character)
{
    return character >= u'0' && character <= u'9';
}

qsizetype digitsAt(QStringView text, qsizetype position)
{
    qsizetype end = position;
    while (end < text.size() && isDigit(text[end]))
        ++end;
    return end - position;
}

/// Whether `text` has as many digits as a card number and a valid check digit (Luhn).
bool isCardNumber(QStringView text)
{
    qsizetype count = 0;
    int sum = 0;
    for (qsizetype i = text.size() - 1; i >= 0; --i) {
        if (!isDigit(text[i]))
            continue;
        const int digit = text[i].unicode() - u'0';
        const int doubled = digit * 2;
        sum += count++ % 2 == 0 ? digit : (doubled > 9 ? doubled - 9 : doubled);
    }
    return count >= fewestDigits && count <= mostDigits && sum % 10 == 0;
}

/// The length of digit groups of these sizes at `position`, separated by one blank or hyphen each;
/// 0 without a match. The last size is a maximum.
qsizetype groupedLength(QStringView text, qsizetype position, std::span<const qsizetype> sizes)
{
    qsizetype end = position;
    QChar separator;
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (i > 0) {
            if (end >= text.size() || (text[end] != u' ' && text[end] != u'-')
                || (i > 1 && text[end] != separator))
                return 0;
            separator = text[end++];
        }
        const qsizetype digits = digitsAt(text, end);
        const bool isLast = i + 1 == sizes.size();
        if (isLast ? digits < 1 || digits > sizes[i] : digits != sizes[i])
            return 0;
        end += digits;
    }
    return end - position;
}

/// The length of the card number at `position`; 0 without one.
qsizetype cardNumberLength(QStringView text, qsizetype position)
{
    static constexpr std::array<qsizetype, 4> fours{4, 4, 4, 7};
    static constexpr std::array<qsizetype, 3> fourSixFive{4, 6, 5};
    const qsizetype lengths[] = {
        digitsAt(text, position),
        groupedLength(text, position, fours),
        groupedLength(text, position, fourSixFive),
    };
    for (const qsizetype length : lengths) {
        if (length > 0 && isCardNumber(text.sliced(position, length)))
            return length;
    }
    return 0;
}

} // namespace

QString maskedCard(const QString &number)
{
    return number.isEmpty() ? QString()
                            : u"****"_s + number.last(std::min(visibleDigits, number.size()));
}

QString maskCardNumbers(const QString &text)
{
    if (std::count_if(text.cbegin(), text.cend(), isDigit) < fewestDigits)
        return text;
    QString result;
    qsizetype position = 0;
    while (position < text.size()) {
        if (!isDigit(text[position])) {
            result += text[position++];
            continue;
        }
        const qsizetype length = cardNumberLength(text, position);
        const qsizetype step = length > 0 ? length : digitsAt(text, position);
        const QString digits = text.sliced(position, step);
        result += length > 0 ? maskedCard(digits) : digits;
        position += step;
    }
    return result;
}
