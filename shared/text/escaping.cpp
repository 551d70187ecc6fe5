#include "shared/text/escaping.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

namespace escaping {

namespace {

constexpr std::size_t longestEvent = 63 * std::size_t{1024};
constexpr std::string_view indent = "\n    ";
constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

struct Range
{
    char32_t first;
    char32_t last;
};

// clang-format off
constexpr std::array hidden{
    Range{0x0000, 0x001f},   // C0
    Range{0x007f, 0x009f},   // DEL, C1
    Range{0x00ad, 0x00ad},   // soft hyphen
    Range{0x034f, 0x034f},   // combining grapheme joiner
    Range{0x061c, 0x061c},   // Arabic letter mark
    Range{0x180e, 0x180e},   // Mongolian vowel separator
    Range{0x200b, 0x200f},   // zero width, direction marks
    Range{0x2028, 0x202e},   // separators, embeddings, overrides
    Range{0x2060, 0x206f},   // word joiner, invisible operators, isolates
    Range{0xfeff, 0xfeff},   // byte order mark
    Range{0xfff9, 0xfffb},   // annotations
    Range{0xe0000, 0xe007f}, // tags
};
// clang-format on

bool isHidden(char32_t letter)
{
    for (const Range &range : hidden) {
        if (letter <= range.last)
            return letter >= range.first;
    }
    return false;
}

struct Letter
{
    char32_t code;
    std::size_t length;
};

constexpr char32_t noLetter = 0xfffd;

/// The first character of `text`; noLetter for a byte that begins no character.
Letter firstLetter(std::string_view text)
{
    const auto byte = [&text](std::size_t at) {
        return static_cast<unsigned char>(text[at]);
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < length)
        return {noLetter, 1};
    char32_t code = lead & (0xffU >> (length + 1));
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xc0U) != 0x80)
            return {noLetter, 1};
        code = (code << 6U) | (byte(at) & 0x3fU);
    }
    return {code, length};
}

std::string escapeOf(char letter, char32_t code, int digits)
{
    std::string result{'\\', letter};
    for (int digit = digits - 1; digit >= 0; --digit)
        result += "0123456789abcdef"[(code >> (4U * static_cast<unsigned>(digit))) & 0xfU];
    return result;
}

std::string numberOf(char32_t code)
{
    if (code > 0xffff)
        return escapeOf('U', code, 8);
    return code > 0xff ? escapeOf('u', code, 4) : escapeOf('x', code, 2);
}

struct Number
{
    char32_t code;
    /// The number's length without the backslash; 0 if there is none.
    std::size_t length;
};

/// The number of a hidden character at the beginning of `text`, which follows a backslash.
Number numberAfterBackslash(std::string_view text)
{
    constexpr Number none{0, 0};
    if (text.empty())
        return none;
    const std::size_t digits = text[0] == 'x' ? 2 : text[0] == 'u' ? 4 : text[0] == 'U' ? 8 : 0;
    if (digits == 0 || text.size() <= digits)
        return none;
    char32_t code = 0;
    for (const char digit : text.substr(1, digits)) {
        const bool isNumber = digit >= '0' && digit <= '9';
        if (!isNumber && (digit < 'a' || digit > 'f'))
            return none;
        code = code * 16 + static_cast<unsigned>(isNumber ? digit - '0' : digit - 'a' + 10);
    }
    return isHidden(code) && numberOf(code).size() == digits + 2 ? Number{code, digits + 1} : none;
}

using Word = std::uint64_t;

/// Whether the next eight bytes are printable ASCII without a backslash.
bool isPlainWord(std::string_view text)
{
    constexpr Word ones = ~Word{0} / 0xff;
    constexpr Word topBits = ones * 0x80;
    if (text.size() < sizeof(Word))
        return false;
    Word word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    // Each sets the top bit of the lowest byte that is meant.
    const Word control = word - ones * ' ';
    const Word delOrNotAscii = word + ones;
    const Word backslash = (word ^ (ones * '\\')) - ones;
    return ((control | delOrNotAscii | backslash) & topBits) == 0;
}

/// Whether the text certainly needs no change. May return false for such a text; fast for JSON and
/// Russian lines.
bool isSurelyPlain(std::string_view text)
{
    for (std::size_t at = 0; at < text.size(); ++at) {
        while (isPlainWord(text.substr(at)))
            at += sizeof(Word);
        if (at == text.size())
            break;
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte >= ' ' && byte < 0x7f && byte != '\\')
            continue;
        // The two UTF-8 lead bytes of Russian letters.
        const bool isRussian = (byte == 0xd0 || byte == 0xd1) && at + 1 < text.size()
                               && (static_cast<unsigned char>(text[at + 1]) & 0xc0U) == 0x80;
        if (!isRussian)
            return false;
        ++at;
    }
    return true;
}

/// Appends the text to `out` and stops before the character that would exceed `limit` bytes.
/// Returns how many bytes of the text were appended.
std::size_t append(std::string &out, std::string_view text, std::string_view newline,
                   std::size_t limit)
{
    std::size_t at = 0;
    // Backslashes before this position are doubled.
    std::size_t doubledEnd = 0;
    std::size_t runEnd = 0;
    while (at < text.size()) {
        const std::string_view rest = text.substr(at);
        const auto [code, length] = firstLetter(rest);
        std::string number;
        std::string_view written = rest.substr(0, length);
        if (code == '\\') {
            if (at >= runEnd) {
                runEnd = std::min(text.find_first_not_of('\\', at), text.size());
                const std::string_view behind = text.substr(runEnd);
                const bool isNumberNext = !behind.empty() && isHidden(firstLetter(behind).code)
                                          && (behind.front() != '\n' || newline.empty());
                if (isNumberNext || numberAfterBackslash(behind).length > 0)
                    doubledEnd = runEnd;
            }
            if (at < doubledEnd)
                written = "\\\\";
        } else if (code == '\n' && !newline.empty()) {
            written = newline;
        } else if (code == noLetter) {
            written = "\xef\xbf\xbd";
        } else if (isHidden(code)) {
            number = numberOf(code);
            written = number;
        }
        if (out.size() + written.size() > limit)
            break;
        out += written;
        at += length;
    }
    return at;
}

} // namespace

QString escaped(const QString &text, Newlines newlines)
{
    const std::string utf8 = text.toStdString();
    if (isSurelyPlain(utf8))
        return text;
    std::string result;
    append(result, utf8, newlines == Newlines::Kept ? "\n" : "", unlimited);
    return QString::fromStdString(result);
}

QString unescaped(const QString &shown)
{
    const std::string utf8 = shown.toStdString();
    const std::string_view text = utf8;
    QString result;
    std::size_t plain = 0;
    const auto flush = [&](std::size_t end) {
        const std::string_view part = text.substr(plain, end - plain);
        result += QString::fromUtf8(part.data(), static_cast<qsizetype>(part.size()));
    };
    for (std::size_t at = text.find('\\'); at != std::string_view::npos;
         at = text.find('\\', plain)) {
        const std::size_t end = std::min(text.find_first_not_of('\\', at), text.size());
        const Number number = numberAfterBackslash(text.substr(end));
        if (number.length == 0) {
            flush(end);
            plain = end;
            continue;
        }
        // Doubled backslashes, and one more before a number.
        const std::size_t count = end - at;
        flush(at + count / 2);
        plain = end;
        if (count % 2 == 1) {
            result += QChar::fromUcs4(number.code);
            plain += number.length;
        }
    }
    flush(text.size());
    return result;
}

std::string logText(std::string_view utf8)
{
    if (utf8.size() <= longestEvent && isSurelyPlain(utf8))
        return std::string(utf8);
    std::string result;
    result.reserve(std::min(utf8.size(), longestEvent));
    const std::size_t taken = append(result, utf8, indent, longestEvent);
    if (taken < utf8.size())
        result += "… (пропущено байт: " + std::to_string(utf8.size() - taken) + ')';
    return result;
}

QString logText(const QString &text)
{
    return QString::fromStdString(logText(std::string_view(text.toStdString())));
}

QByteArray escapedJson(const QByteArray &json)
{
    const std::string_view text(json.constData(), static_cast<std::size_t>(json.size()));
    if (isSurelyPlain(text))
        return json;
    QByteArray result;
    result.reserve(json.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto [code, length] = firstLetter(text.substr(at));
        if (code < ' ' || !isHidden(code)) {
            result.append(json.constData() + at, static_cast<qsizetype>(length));
        } else {
            const auto units = QChar::fromUcs4(code);
            for (const QChar unit : QStringView(units))
                result += escapeOf('u', unit.unicode(), 4).c_str();
        }
        at += length;
    }
    return result;
}

} // namespace escaping
