#include "shared/net/httpdate.h"

#include <array>

namespace {

constexpr std::array<QByteArrayView, 7> dayNames = {"Mon", "Tue", "Wed", "Thu",
                                                    "Fri", "Sat", "Sun"};
constexpr std::array<QByteArrayView, 12> monthNames = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// The format: 0 is a digit, blanks are the names of day and month, other characters are literal.
constexpr QByteArrayView dateForm = "   , 00     0000 00:00:00 GMT";

bool hasForm(QByteArrayView text)
{
    if (text.size() != dateForm.size())
        return false;
    for (qsizetype i = 0; i < dateForm.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        const bool isName = i < 3 || (i >= 8 && i < 11);
        if (!isName && (dateForm[i] == '0' ? !isDigit : text[i] != dateForm[i]))
            return false;
    }
    return true;
}

int numberAt(QByteArrayView text, qsizetype start, qsizetype size)
{
    return text.sliced(start, size).toInt();
}

/// The index of a name in `names`; their number if not found.
template <std::size_t Size>
std::size_t placeOf(QByteArrayView name, const std::array<QByteArrayView, Size> &names)
{
    std::size_t place = 0;
    while (place < Size && names[place] != name)
        ++place;
    return place;
}

} // namespace

namespace http {

std::optional<std::chrono::sys_seconds> parseDate(QByteArrayView text)
{
    using namespace std::chrono;
    if (!hasForm(text) || placeOf(text.first(3), dayNames) == dayNames.size())
        return std::nullopt;
    const auto monthNumber = static_cast<unsigned>(placeOf(text.sliced(8, 3), monthNames) + 1);
    const year_month_day date(year(numberAt(text, 12, 4)), month(monthNumber),
                              day(static_cast<unsigned>(numberAt(text, 5, 2))));
    const hours hour(numberAt(text, 17, 2));
    const minutes minute(numberAt(text, 20, 2));
    const seconds second(numberAt(text, 23, 2));
    // 60 is a leap second.
    if (!date.ok() || hour > hours(23) || minute > minutes(59) || second > seconds(60))
        return std::nullopt;
    return sys_days(date) + hour + minute + second;
}

} // namespace http
