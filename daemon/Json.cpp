#include "Json.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

namespace harkline {
namespace {

// The value of the four hex digits at `at`, if there are four.
std::optional<char16_t> hexUnit(std::string_view text, std::size_t at)
{
    if (at + 4 > text.size())
        return std::nullopt;
    char16_t unit = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
        const char c = text[i];
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0)
            return std::nullopt;
        unit = char16_t(unit * 16 + digit);
    }
    return unit;
}

bool isHighSurrogate(char16_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(char16_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool isNumberByte(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

// -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?, the whole of `token`.
bool isJsonNumber(std::string_view token)
{
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t start = i;
        while (i < token.size() && token[i] >= '0' && token[i] <= '9')
            ++i;
        return i - start;
    };
    if (i < token.size() && token[i] == '-')
        ++i;
    if (i < token.size() && token[i] == '0')
        ++i;
    else if (digits() == 0)
        return false;
    if (i < token.size() && token[i] == '.') {
        ++i;
        if (digits() == 0)
            return false;
    }
    if (i < token.size() && (token[i] == 'e' || token[i] == 'E')) {
        ++i;
        if (i < token.size() && (token[i] == '+' || token[i] == '-'))
            ++i;
        if (digits() == 0)
            return false;
    }
    return i == token.size();
}

// What the JSON library refuses as a number overflow: a value that is infinite as a double.
bool overflowsDouble(std::string_view token)
{
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    const std::string copy(token); // strtod wants a terminated text
    return std::isinf(strtod_l(copy.c_str(), nullptr, cLocale));
}

// `text` with each \u escape of a lone surrogate replaced by \ufffd and each number token out
// of a double's range by null; none when there is neither. Both rewrites put a valid token where
// a valid token stood, so they cannot make any other flaw of the text pass the parse after them.
std::optional<std::string> repaired(std::string_view text)
{
    std::string out;
    std::size_t copied = 0; // text[0, copied) is in `out` already
    const auto replace = [&](std::size_t from, std::size_t length, std::string_view with) {
        out.append(text.substr(copied, from - copied)).append(with);
        copied = from + length;
    };
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '"') {
                inString = false;
            } else if (c == '\\' && i + 1 < text.size() && text[i + 1] == 'u') {
                const auto unit = hexUnit(text, i + 2);
                if (!unit) {
                    ++i; // a bad escape: the parse refuses it
                    continue;
                }
                if (isHighSurrogate(*unit) && text.substr(i + 6, 2) == "\\u") {
                    const auto next = hexUnit(text, i + 8);
                    if (next && isLowSurrogate(*next)) {
                        i += 11; // a proper pair
                        continue;
                    }
                }
                if (isHighSurrogate(*unit) || isLowSurrogate(*unit))
                    replace(i, 6, "\\ufffd");
                i += 5;
            } else if (c == '\\') {
                ++i; // whatever is escaped, it cannot end the string: "\\ud83d" is no escape
            }
        } else if (c == '"') {
            inString = true;
        } else if (isNumberByte(c)) {
            std::size_t end = i;
            while (end < text.size() && isNumberByte(text[end]))
                ++end;
            const std::string_view token = text.substr(i, end - i);
            // Only where a value may begin, so that "null" cannot merge with what stands before.
            const char before = i == 0 ? ' ' : text[i - 1];
            const bool valueStart = before == ' ' || before == '\t' || before == '\n' ||
                                    before == '\r' || before == '[' || before == ':' ||
                                    before == ',';
            if (valueStart && isJsonNumber(token) && overflowsDouble(token))
                replace(i, token.size(), "null");
            i = end - 1;
        }
    }
    if (copied == 0)
        return std::nullopt;
    out.append(text.substr(copied));
    return out;
}

} // namespace

Json parseReply(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        return Json(Json::value_t::discarded);
    Json parsed = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    // The repair runs only on a text the strict parse refused, so a well-formed reply costs one
    // parse and nothing more.
    if (parsed.is_discarded())
        if (const auto again = repaired(text))
            parsed = Json::parse(*again, nullptr, /*allow_exceptions=*/false);
    return parsed;
}

std::optional<std::int64_t> wholeNumber(const Json& value)
{
    switch (value.type()) {
    case Json::value_t::number_integer:
        return value.get<std::int64_t>();
    case Json::value_t::number_unsigned: {
        const auto u = value.get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(INT64_MAX))
            return std::nullopt;
        return static_cast<std::int64_t>(u);
    }
    case Json::value_t::number_float: {
        const double d = value.get<double>();
        // -2^63 is exact in a double; 2^63 is the first value that no longer fits.
        constexpr double lowest = -9223372036854775808.0;
        constexpr double beyond = 9223372036854775808.0;
        if (!std::isfinite(d) || std::trunc(d) != d || d < lowest || d >= beyond)
            return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    default:
        return std::nullopt;
    }
}

const Json* member(const Json& object, const char* key)
{
    if (!object.is_object())
        return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

} // namespace harkline
