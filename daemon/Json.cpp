#include "Json.h"

#include <cmath>

namespace harkline {

Json parseStrict(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos)
        return Json(Json::value_t::discarded);
    return Json::parse(text, nullptr, /*allow_exceptions=*/false);
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
